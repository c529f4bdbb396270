// The filters' fields and buttons: they show what is asked and change it.
const controls = (() => {
  const selects = ['kind', 'signature', 'signer', 'company', 'copies', 'validity', 'role'];
  const {asked} = query;
  const {byId} = dom;

  // A filter that has no field: its words, and a button that ends it.
  function chip(name, words) {
    const end = dom.button('chip', null, () => lists.ask({[name]: ''}));
    end.append(dom.make('span', '', words), dom.bdi(asked[name], 200), dom.make('span', 'cross', '×'));
    end.setAttribute('aria-label', `End the filter: ${words}${dom.plain(asked[name])}`);
    return end;
  }

  function showChips() {
    const chips = [];
    if (asked.folder) chips.push(chip('folder', 'below '));
    if (asked.certificate) chips.push(chip('certificate', 'with certificate '));
    byId('chips').replaceChildren(...chips);
    byId('chips').hidden = chips.length === 0;
  }

  function showSelect(name) {
    const select = byId(name);
    select.value = asked[name];
    if (select.value === asked[name]) return;
    dom.option(select, asked[name], dom.plain(summary.labelOf(name, asked[name])));  // rarer than those listed
    select.value = asked[name];
  }

  function show() {
    if (byId('query').value.trim() !== asked.query) byId('query').value = asked.query;
    selects.forEach(showSelect);
    showChips();
    byId('reset').hidden = !query.isFiltered();
    for (const button of document.querySelectorAll('[data-filter]')) {
      button.setAttribute('aria-pressed', asked[button.dataset.filter] === button.value);
    }
  }

  // A button that asks for one value, and when it is asked for already, no longer.
  function filterButton(button, name, value) {
    button.dataset.filter = name;
    button.value = value;
    button.addEventListener('click', () => lists.ask({[name]: asked[name] === value ? '' : value}));
  }

  function reset() {
    lists.ask(Object.fromEntries(query.filters.map((name) => [name, ''])));
    byId('query').focus();
  }

  function turnView(event) {
    if (!['ArrowLeft', 'ArrowRight'].includes(event.key)) return;
    lists.ask({view: asked.view === 'files' ? 'certificates' : 'files'});
    byId(`view-${asked.view}`).focus();
    event.preventDefault();
  }

  function slash(event) {
    if (event.key !== '/' || /^(INPUT|SELECT)$/.test(event.target.tagName) || byId('details').open) return;
    byId('query').focus();
    event.preventDefault();
  }

  function start() {
    const verdicts = Object.keys(VERDICT).filter((key) => survey.canBe(VERDICT[key]));
    for (const [name, words] of
             [...verdicts.map((key) => [key, VERDICT_WORDS[VERDICT[key]]]), ['ended', 'certificate past its end date'],
              ['soon', 'certificate ends soon']]) {
      dom.option(byId('signature'), name, words);
    }
    let waiting = 0;
    byId('query').addEventListener('input', (event) => {
      clearTimeout(waiting);
      waiting = setTimeout(() => lists.ask({query: event.target.value.trim()}), 120);
    });
    for (const name of selects)
      byId(name).addEventListener('change', (event) => lists.ask({[name]: event.target.value}));
    byId('filters').addEventListener('submit', (event) => event.preventDefault());
    byId('reset').addEventListener('click', reset);
    for (const view of ['files', 'certificates']) {
      byId(`view-${view}`).addEventListener('click', () => lists.ask({view}));
    }
    byId('views').addEventListener('keydown', turnView);
    byId('skip').addEventListener('click', (event) => {
      lists.current().root.focus();
      event.preventDefault();
    });
    document.addEventListener('keydown', slash);
    addEventListener('hashchange', () => {
      query.readAddress();
      lists.refresh();
    });
  }

  return {start, show, filterButton};
})();
