// The parts above the lists: numbers, bars of companies and signers, totals by folder.
const summary = (() => {
  const mostBars = 8, mostOptions = 500, mostFolders = 8;
  const {asked} = query;
  const {byId} = dom;
  const labels = new Map();  // of signers, by identity

  const byNumber = (a, b) => b[1] - a[1] || (a[0] < b[0] ? -1 : 1);

  function companyCounts() {
    const byText = new Uint32Array(survey.texts.length);
    for (let file = 0; file < survey.files; ++file) ++byText[survey.columns.company[file]];
    const counts = survey.texts.map((text, n) => [text, byText[n]]).filter(([text, n]) => n > 0 && text !== '');
    return counts.sort(byNumber);
  }

  function signerCounts() {
    const counts = new Map();
    for (const one of survey.sets) {
      for (const [identity, label] of one.identities) {
        labels.set(identity, label);
        counts.set(identity, (counts.get(identity) ?? 0) + one.files);
      }
    }
    return [...counts].sort(byNumber);
  }

  const labelOf = (name, value) => name === 'signer' ? labels.get(value) ?? value : value;

  function bar(name, value, n, most) {
    const track = dom.svg('rect', {class: 'track', width: 100, height: 6, rx: 1});
    const fill = dom.svg('rect', {class: 'fill', width: Math.max(0.5, 100 * n / most), height: 6, rx: 1});
    const button = dom.make(
        'button', '', null, dom.make('span', 'label', null, dom.bdi(labelOf(name, value))),
        dom.make('span', 'count', dom.count(n)),
        dom.svg('svg', {'viewBox': '0 0 100 6', 'preserveAspectRatio': 'none', 'aria-hidden': 'true'}, track, fill));
    button.type = 'button';
    controls.filterButton(button, name, value);
    return dom.make('li', '', null, button);
  }

  function bars(id, name, counts) {
    const shown = counts.slice(0, mostBars).map(([value, n]) => bar(name, value, n, counts[0][1]));
    byId(id).append(...(shown.length ? shown : [dom.make('li', 'none', 'None.')]));
    dom.option(byId(name), '', 'all');
    for (const [value, n] of counts.slice(0, mostOptions)) {
      dom.option(byId(name), value, `${dom.plain(labelOf(name, value))} (${dom.count(n)})`);
    }
  }

  // ---- tiles ----

  function toList() {
    byId('list').scrollIntoView({block: 'start'});
    lists.current().root.focus({preventScroll: true});
  }

  // `changes` is what the tile asks for; without any it is only a number.
  function tile(n, label, changes = null, look = '') {
    if (n === 0 && survey.hasDetails) return;  // there are many kinds already
    const one = dom.make(
        changes ? 'button' : 'div', n && look ? `tile ${look}` : 'tile', null, dom.make('b', '', dom.count(n)),
        dom.make('span', '', label));
    if (changes) {
      one.type = 'button';
      one.addEventListener('click', () => {
        lists.ask({...Object.fromEntries(query.filters.map((name) => [name, ''])), ...changes});
        toList();
      });
    }
    byId('tiles').append(dom.make('li', '', null, one));
  }

  const tileWords = {ValidUntil: 'valid, not stamped', InCatalogue: 'in a catalogue'};
  const actOn = ['Ended', 'DoesNotMatch', 'Undecodable'];

  function tiles() {
    let installers = 0, packages = 0;
    const verdicts = VERDICT_WORDS.map(() => 0);
    for (let file = 0; file < survey.files; ++file) {
      if (survey.isInstaller(file)) ++installers;
      if (survey.isPackage(file)) ++packages;
      ++verdicts[survey.verdictOf(file)];
    }
    const states = {'': 0, 'soon': 0, 'ended': 0, 'unknown': 0};
    for (const one of survey.certificates) ++states[survey.validityOf(one)];
    const view = 'files';
    tile(survey.files, 'files', {view});
    tile(installers, 'installers', {view, kind: 'installer'});
    tile(packages, 'packages', {view, kind: 'package'});
    for (const [name, n] of Object.entries(VERDICT)) {
      if (!survey.canBe(n)) continue;
      tile(
          verdicts[n], tileWords[name] ?? VERDICT_WORDS[n], {view, signature: name},
          actOn.includes(name) ? 'warn' : '');
    }
    tile(survey.certificates.length, 'certificates', {view: 'certificates'});
    if (!survey.hasDetails) {
      tile(states.ended, 'certificates past their end date', {view: 'certificates', validity: 'ended'});
    }
    tile(states.soon, 'certificates that end soon', {view: 'certificates', validity: 'soon'}, 'warn');
    byId('tiles').classList.toggle('many', byId('tiles').childElementCount > 9);
  }

  // ---- folders ----

  // [folder, [files, signed, unsigned]] for each folder right below `base`, and for the files of `base` itself.
  function folderTotals(files, base) {
    const {columns, texts} = survey;
    const counts = [texts.length, texts.length, texts.length].map((size) => new Uint32Array(size));
    for (const file of files) {
      const folder = columns.folder[file];
      ++counts[0][folder];
      if (survey.isSigned(file)) ++counts[1][folder];
      if (survey.verdictOf(file) === VERDICT.Unsigned) ++counts[2][folder];
    }
    const totals = new Map();
    for (let n = 0; n < texts.length; ++n) {
      if (counts[0][n] === 0) continue;
      const folder = texts[n].startsWith(base) ? survey.stepBehind(texts[n], base.length) : texts[n];
      const sums = totals.get(folder) ?? [0, 0, 0];
      totals.set(folder, sums.map((sum, i) => sum + counts[i][n]));
    }
    return [...totals].sort((a, b) => b[1][0] - a[1][0] || (a[0] < b[0] ? -1 : 1));
  }

  function folderRow([folder, sums], base) {
    let name = dom.make('span', 'soft', 'right here');
    if (folder !== base) {
      name = dom.button('link', null, () => lists.ask({folder, view: 'files'}));
      name.append(dom.bdi(folder.slice(base.length)));
    }
    const cells = sums.map((sum) => dom.make('td', '', dom.count(sum)));
    return dom.make('tr', '', null, dom.make('th', '', null, name), ...cells);
  }

  function showFolders(files) {
    const base = asked.folder || survey.root;
    const totals = folderTotals(files, base);
    byId('folders').replaceChildren(...totals.slice(0, mostFolders).map((one) => folderRow(one, base)));
    for (const cell of byId('folders').querySelectorAll('th')) cell.scope = 'row';
    byId('folders-more').hidden = totals.length <= mostFolders;
    byId('folders-more').textContent = `and ${dom.counted(totals.length - mostFolders, 'more folder', 'more folders')}`;
    byId('folder-path').hidden = !asked.folder;
    byId('folder-path').replaceChildren(dom.bdi(asked.folder));
    byId('folder-up').hidden = !asked.folder;
  }

  function folderUp() {
    const shorter = asked.folder.slice(0, -1);
    const above = shorter.slice(0, Math.max(shorter.lastIndexOf('/'), shorter.lastIndexOf('\\')) + 1);
    lists.ask({folder: above.length > survey.root.length && /[^/\\]/.test(above) ? above : ''});
  }

  function start() {
    tiles();
    bars('companies', 'company', companyCounts());
    bars('signers', 'signer', signerCounts());
    byId('folder-up').addEventListener('click', folderUp);
  }

  return {start, show: showFolders, labelOf};
})();
