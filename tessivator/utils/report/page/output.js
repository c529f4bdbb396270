// What leaves the page: tables, copies and paper.
const output = (() => {
  const mostPrinted = 2000;
  const rowsAtOnce = 10000;

  // A cell of RFC 4180 that no spreadsheet takes for a formula, as the program's own tables have it.
  function cell(value) {
    const formula = /^[ \u00a0\u2000-\u200b\u3000\ufeff]*[=+\-@\t\r\n\uff1d\uff0b\uff0d\uff20]/.test(value);
    const guarded = formula ? `'${value}` : value;
    return /[,;"\t\r\n]/.test(guarded) ? `"${guarded.replaceAll('"', '""')}"` : guarded;
  }

  function signedWord(file) {
    if (survey.verdictOf(file) === VERDICT.NotLookedAt) return VERDICT_WORDS[VERDICT.NotLookedAt];
    return survey.isSigned(file) ? 'yes' : 'no';
  }
  function verdictCells(file) {
    const verdict = survey.verdictOf(file), about = survey.aboutVerdict(file);
    const isCatalogue = verdict === VERDICT.InCatalogue;
    return [VERDICT_WORDS[verdict], isCatalogue ? '' : about, isCatalogue ? about : ''];
  }

  const verdictHead = ['verdict', 'verdictDate', 'catalogue'];
  const fileHead =
      ['Name', 'SHA1', 'SHA256', 'companyName', 'productName', 'productVersion', 'isInstaller', 'signed', 'signers'];
  const fileRow = (file) =>
      [survey.pathOf(file), survey.sha1Of(file), survey.sha256Of(file), survey.textOf(file, 'company'),
       survey.textOf(file, 'product'), survey.textOf(file, 'version'),
       ['no', 'yes', ''][survey.columns.installer[file]], signedWord(file), survey.setFor(file).label,
       ...(survey.hasDetails ? verdictCells(file) : [])];

  const certificateHead = [
    'signer', 'subject', 'issuer', 'serial', 'valid from', 'valid until', 'key', 'usages', 'SHA1', 'SHA256', 'file',
    'files', 'problem'
  ];
  const certificateRow = (one) =>
      [one.label, one.subject, one.issuer, one.serial, one.problem ? '' : dom.day(one.notBefore),
       one.problem ? '' : dom.day(one.notAfter), one.key, one.usages, one.sha1, one.sha256, `${one.name}.cer`,
       `${one.files}`, one.problem];

  function table(items, head, row) {
    const line = (cells) => cells.map(cell).join(',') + '\r\n';
    const parts = ['\ufeff' + line(head)];
    for (let from = 0; from < items.length; from += rowsAtOnce) {
      parts.push(Array.from(items.slice(from, from + rowsAtOnce), (item) => line(row(item))).join(''));
    }
    return new Blob(parts, {type: 'text/csv'});
  }

  function save() {
    const {view} = query.asked, {items} = lists.current();
    const link = document.createElement('a');
    link.href = URL.createObjectURL(
        view === 'files' ? table(items, [...fileHead, ...(survey.hasDetails ? verdictHead : [])], fileRow) :
                           table(items, certificateHead, certificateRow));
    link.download = `${view}.csv`;
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 60000);
  }

  async function copy(value) {
    try {
      await navigator.clipboard.writeText(value);
    } catch {
      // Not every browser lets a page from a disk use the clipboard in this way.
      const field = dom.make('textarea', 'unseen');
      field.value = value;
      dom.byId('sheet').append(field);
      field.select();
      document.execCommand('copy');
      field.remove();
    }
  }

  // On paper: the rows that the filters leave, as far as anybody would print them.
  // A long path breaks behind its separators.
  function printed(value) {
    const parts = value.match(/[^/\\]*[/\\]?/g).filter((part) => part !== '');
    return dom.make('bdi', '', null, ...parts.flatMap((part) => [dom.make('span', '', part), dom.make('wbr')]));
  }
  // Dates do not break.
  function printedSignature(file) {
    const {label} = survey.setFor(file), words = survey.wordsOf(file).replaceAll('-', '\u2011');
    return label && survey.verdictOf(file) !== VERDICT.Signed ? `${label}: ${words}` : label || words;
  }
  const printedFile = (file) =>
      [survey.pathOf(file), survey.textOf(file, 'product'), survey.textOf(file, 'version'),
       survey.textOf(file, 'company'), survey.isInstaller(file) ? 'installer' : '', printedSignature(file)];
  const printedCertificate = (one) =>
      [one.subject || one.label, one.issuer, one.problem || dom.day(one.notAfter), one.key, one.usages, one.sha1,
       dom.count(one.files)];

  function print() {
    const isFiles = query.asked.view === 'files', {items} = lists.current();
    const columns = isFiles ? lists.fileColumns : lists.certificateColumns;
    const row = (item) => dom.make(
        'tr', '', null,
        ...(isFiles ? printedFile : printedCertificate)(item).map((value) => dom.make('td', '', null, printed(value))));
    const head = dom.make('tr', '', null, ...columns.map(([, label]) => dom.make('th', '', label)));
    const all =
        isFiles ? dom.counted(items.length, 'file', 'files') : dom.counted(items.length, 'certificate', 'certificates');
    const body = dom.make('tbody', '', null, ...Array.from(items.slice(0, mostPrinted), row));
    dom.byId('paper').replaceChildren(
        dom.make('h2', '', items.length > mostPrinted ? `The first ${dom.count(mostPrinted)} of ${all}` : all),
        dom.make('table', query.asked.view, null, dom.make('thead', '', null, head), body));
  }

  function start() {
    dom.byId('save').addEventListener('click', save);
    addEventListener('beforeprint', print);
    addEventListener('afterprint', () => dom.byId('paper').replaceChildren());
  }

  return {start, copy};
})();
