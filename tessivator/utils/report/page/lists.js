// The two lists, of files and of certificates, and what goes with every change of what is asked.
const lists = (() => {
  const fileColumns = [
    ['name', 'File'],
    ['product', 'Product'],
    ['version', 'Version'],
    ['company', 'Company'],
    ['installer', 'Kind'],
    ['certificates', 'Signed by'],
  ];
  const certificateColumns = [
    ['label', 'Subject'],
    ['issuer', 'Issuer'],
    ['ends', 'Valid until'],
    ['key', 'Key'],
    ['usages', 'Usages'],
    ['sha1', 'Thumbprints'],
    ['files', 'Files'],
  ];
  const most = 1000;  // characters of a value in a row
  const {asked} = query;
  const grids = {};

  const text = (value) => dom.bdi(value, most);

  const looks = {'': 'dot', 'soon': 'dot warn', 'bad': 'dot bad', 'past': 'dot past'};
  const validityWords = {ended: 'certificate is past its end date: ', soon: 'certificate ends soon: '};

  function signature(file) {
    const {label, validity} = survey.setFor(file), words = survey.wordsOf(file);
    const dot = dom.make('span', looks[survey.looksOf(file)]);
    if (survey.verdictOf(file) === VERDICT.Signed) {
      const unseen = dom.make('span', 'unseen', validityWords[validity] ?? '');
      return [dot, unseen, text(label || 'signed, by no listed signer')];
    }
    if (survey.verdictOf(file) >= VERDICT.Unsigned) return [dom.make('span', 'soft', words)];
    if (!label) return [dot, text(words)];
    return [dom.make('div', 'signer', null, dot, text(label)), dom.make('div', 'folder', null, text(words))];
  }

  function fillFile([name, product, version, company, kind, signer], file) {
    const folder = survey.folderOf(file).slice(survey.root.length);
    name.replaceChildren(
        dom.make('div', 'title', null, text(survey.names[file])), dom.make('div', 'folder', null, text(folder)));
    product.replaceChildren(text(survey.textOf(file, 'product')));
    version.replaceChildren(text(survey.textOf(file, 'version')));
    company.replaceChildren(text(survey.textOf(file, 'company')));
    kind.replaceChildren(...(survey.isInstaller(file) ? [dom.make('span', 'badge', 'installer')] : []));
    signer.replaceChildren(...signature(file));
  }

  function validity(one) {
    if (one.problem) return [dom.make('span', 'soft', one.problem)];
    const look = {'ended': 'past', 'soon': 'warn'}[survey.validityOf(one)] ?? '';
    return [dom.make('span', `dot ${look}`), dom.day(one.notAfter)];
  }

  function fillCertificate([label, issuer, ends, key, usages, thumbprints, files], one) {
    label.replaceChildren(
        dom.make('div', 'title', null, text(one.label)), dom.make('div', 'folder', null, text(one.subject)));
    issuer.replaceChildren(text(one.issuer));
    ends.replaceChildren(...validity(one));
    key.replaceChildren(text(one.key));
    usages.replaceChildren(text(one.usages));
    thumbprints.replaceChildren(dom.make('div', 'code', one.sha1), dom.make('div', 'code', one.sha256));
    files.textContent = dom.count(one.files);
  }

  function toggle(column, sort, order) {
    ask(query.nextOrder(column, sort, order));
  }

  function start() {
    grids.files = new Grid(dom.byId('grid'), {
      label: 'Files',
      columns: fileColumns,
      fill: fillFile,
      open: (place) => sheet.open(place),
      sort: (key) => toggle(key, 'sort', 'order'),
    });
    grids.certificates = new Grid(dom.byId('certificate-grid'), {
      label: 'Certificates',
      columns: certificateColumns,
      fill: fillCertificate,
      open: (place) => sheet.open(place),
      sort: (key) => toggle(key, 'csort', 'corder'),
    });
  }

  const current = () => grids[asked.view];

  function tellNumbers() {
    const numbers = {files: survey.files, certificates: survey.certificates.length};
    for (const [view, all] of Object.entries(numbers)) {
      const shown = grids[view].items.length;
      dom.byId(`found-${view}`).textContent =
          shown === all ? dom.count(all) : `${dom.count(shown)} of ${dom.count(all)}`;
    }
    dom.byId('found').textContent = `${dom.count(current().items.length)} of ${dom.count(numbers[asked.view])} shown`;
  }

  // Everything anew from what is asked; only the list that is seen is drawn.
  function refresh() {
    for (const view of ['files', 'certificates']) {
      const own = view === asked.view;
      dom.byId(`panel-${view}`).hidden = !own;
      dom.byId(`choices-${view}`).hidden = !own;
      dom.byId(`view-${view}`).setAttribute('aria-selected', own);
      dom.byId(`view-${view}`).tabIndex = own ? 0 : -1;
    }
    grids.files.show(query.files(), asked.sort, asked.order === 'down');
    grids.certificates.show(query.certificates(), asked.csort, asked.corder === 'down');
    tellNumbers();
    controls.show();
    summary.show(grids.files.items);
  }

  function ask(changes) {
    Object.assign(asked, changes);
    query.writeAddress();
    refresh();
  }

  return {start, refresh, ask, current, fileColumns, certificateColumns, grids};
})();
