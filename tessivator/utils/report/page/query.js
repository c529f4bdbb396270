// What is asked for: filters, search and order of both lists. It stands in the address's fragment.
const query = (() => {
  // The names are those of the fragment; a value that is the default does not stand there.
  const defaults = Object.freeze({
    view: 'files',
    query: '',
    kind: '',
    signature: '',
    signer: '',
    company: '',
    copies: '',
    folder: '',
    certificate: '',
    validity: '',
    role: '',
    sort: '',
    order: 'up',
    csort: 'ends',
    corder: 'up',
  });
  // What these can be; an address may hold anything.
  const known = Object.freeze({
    view: ['files', 'certificates'],
    kind: ['', 'installer', 'other', 'package'],
    sort: ['', 'name', 'product', 'version', 'company', 'installer', 'certificates'],
    order: ['up', 'down'],
    csort: ['label', 'issuer', 'ends', 'key', 'usages', 'sha1', 'files'],
    corder: ['up', 'down'],
    validity: ['', 'ended', 'soon', 'valid'],
  });
  const notFilters = ['view', 'sort', 'order', 'csort', 'corder'];
  const filters = Object.keys(defaults).filter((name) => !notFilters.includes(name));
  const asked = {...defaults};

  const isFiltered = () => filters.some((name) => asked[name] !== defaults[name]);

  function readAddress() {
    const given = new URLSearchParams(location.hash.slice(1));
    for (const name of Object.keys(defaults)) asked[name] = given.get(name) ?? defaults[name];
    for (const [name, values] of Object.entries(known)) {
      if (!values.includes(asked[name])) asked[name] = defaults[name];
    }
  }

  function writeAddress() {
    const given = new URLSearchParams();
    for (const [name, value] of Object.entries(asked)) {
      if (value !== defaults[name]) given.set(name, value);
    }
    const fragment = `#${given}`;
    if (fragment !== (location.hash || '#')) history.replaceState(null, '', fragment);
  }

  // ---- search ----

  // Words, or "several words" as one; the colons of a thumbprint do not count.
  function wordsOf(text) {
    const words = [...text.toLowerCase().matchAll(/"([^"]+)"|\S+/g)].map(([word, quoted]) => quoted ?? word);
    const bare = words.map((word) => /^([0-9a-f]{2}:)+[0-9a-f]{2}$/.test(word) ? word.replaceAll(':', '') : word);
    return bare.sort((a, b) => b.length - a.length);  // the longer, the fewer files remain for the next one
  }

  const hits = (list, test) => Uint8Array.from(list, (one) => test(one) ? 1 : 0);

  const shortestNumber = 6;  // fewer digits would be found in nearly every thumbprint

  function isIn(one, word) {
    one.words ??= [one.label, one.holder, one.subject, one.issuer].join('\n').toLowerCase();
    one.numbers ??= [one.serial, one.sha1, one.sha256, `${one.name}.cer`].join('\n').toLowerCase();
    if (one.words.includes(word) || one.serial.toLowerCase() === word) return true;
    return word.length >= shortestNumber && one.numbers.includes(word);
  }

  function wordTest(word) {
    const {columns, names, sets} = survey;
    const found = (value) => value.toLowerCase().includes(word);
    const carrying = new Set(survey.certificates.filter((one) => isIn(one, word)));
    const inTexts = hits(survey.texts, found);
    const inSets = hits(sets, (one) => one.all.some((certificate) => carrying.has(certificate)));
    const tests = [
      (file) => inTexts[columns.folder[file]],
      (file) => inTexts[columns.product[file]],
      (file) => inTexts[columns.version[file]],
      (file) => inTexts[columns.company[file]],
      (file) => inTexts[columns.signature[file]],
      (file) => inSets[columns.certificates[file]],
      (file) => found(names[file]),
    ];
    if (/[/\\]/.test(word)) tests.push((file) => found(survey.pathOf(file)));
    if (/^[0-9a-f]{6,64}$/.test(word)) tests.push(survey.digestTest(word));
    return (file) => tests.some((test) => test(file));
  }

  // ---- filters ----

  const kindTests = {
    installer: survey.isInstaller,
    other: (file) => !survey.isInstaller(file),
    package: survey.isPackage,
  };

  function setTest(test) {
    const inSets = hits(survey.sets, test);
    return (file) => inSets[survey.columns.certificates[file]];
  }

  function signatureTest(wanted) {
    if (wanted === 'ended' || wanted === 'soon') {
      return setTest((one) => one.signers.some((signer) => survey.validityOf(signer) === wanted));
    }
    return (file) => survey.verdictOf(file) === VERDICT[wanted];
  }

  function fileTests() {
    const {columns, texts} = survey;
    const tests = [];
    if (asked.kind) tests.push(kindTests[asked.kind]);
    if (asked.signature) tests.push(signatureTest(asked.signature));
    if (asked.signer) tests.push(setTest((one) => one.identities.has(asked.signer)));
    if (asked.certificate) {
      tests.push(setTest((one) => one.all.some(({name}) => name === asked.certificate)));
    }
    if (asked.company) {
      const wanted = survey.textNumbers.get(asked.company);
      tests.push((file) => columns.company[file] === wanted);
    }
    if (asked.folder) {
      const below = hits(texts, (one) => one.startsWith(asked.folder));
      tests.push((file) => below[columns.folder[file]]);
    }
    if (asked.copies) {
      const {counts} = survey.copiesOf();
      tests.push((file) => counts[file] > 1);
    }
    return [...tests, ...wordsOf(asked.query).map(wordTest)];
  }

  function roleOf(one) {
    if (one.signs > 0) return 'signer';
    return one.isTimeStamping ? 'stamp' : 'other';
  }

  const validityTests = {
    ended: (one) => survey.validityOf(one) === 'ended',
    soon: (one) => survey.validityOf(one) === 'soon',
    valid: (one) => survey.validityOf(one) === '',
  };

  function certificateTests() {
    const tests = wordsOf(asked.query).map((word) => (one) => isIn(one, word));
    if (asked.validity) tests.push(validityTests[asked.validity]);
    if (asked.role) tests.push((one) => roleOf(one) === asked.role);
    return tests;
  }

  // ---- order ----

  const collator = new Intl.Collator('en', {numeric: true, sensitivity: 'base'});
  const mostCollated = 20000;  // more values would take the exact comparison too long

  function comparison(values) {
    if (values.length <= mostCollated) return (a, b) => collator.compare(values[a], values[b]);
    const low = values.map((one) => one.toLowerCase());
    return (a, b) => {
      if (low[a] === low[b]) return 0;
      return low[a] < low[b] ? -1 : 1;
    };
  }

  // The place of each value among all of them; an empty one has none.
  function ranksOf(values, compare = comparison(values)) {
    const ranks = new Uint32Array(values.length).fill(values.length);
    const sorted = Uint32Array.from(values.keys()).filter((n) => values[n] !== '').sort(compare);
    let place = 0;
    for (let i = 0; i < sorted.length; ++i) {
      if (i > 0 && compare(sorted[i - 1], sorted[i]) !== 0) ++place;
      ranks[sorted[i]] = place;
    }
    return {ranks, empty: values.length};
  }

  // `list` by the rank of each, what is empty last in either direction. One number holds rank and place, so that equal
  // ones keep their order and the engine sorts plain numbers.
  function ordered(list, rankOf, empty, down) {
    const size = list.length;
    const keyOf = (rank) => down && rank !== empty ? empty - 1 - rank : rank;
    const keys = Float64Array.from(list, (one, i) => keyOf(rankOf(one)) * size + i).sort();
    return Array.isArray(list) ? Array.from(keys, (key) => list[key % size]) : list.map((_, i) => list[keys[i] % size]);
  }

  const rankCache = new Map();
  function cached(key, make) {
    if (!rankCache.has(key)) rankCache.set(key, make());
    return rankCache.get(key);
  }

  function sortFiles(list) {
    const key = asked.sort, down = asked.order === 'down', {columns} = survey;
    if (key === 'installer') return ordered(list, (file) => survey.isInstaller(file) ? 0 : 1, 1, down);
    if (key === 'name') {
      const {ranks, empty} = cached('name', () => ranksOf(survey.names));
      return ordered(list, (file) => ranks[file], empty, down);
    }
    if (key === 'certificates') {
      const {ranks, empty} = cached('sets', () => ranksOf(survey.sets.map((one) => one.label)));
      return ordered(list, (file) => ranks[columns.certificates[file]], empty, down);
    }
    if (key) {
      const {ranks, empty} = cached('texts', () => ranksOf(survey.texts));
      return ordered(list, (file) => ranks[columns[key][file]], empty, down);
    }
    if (!asked.copies) return list;
    const {groups} = survey.copiesOf();
    return ordered(list, (file) => groups[file], survey.files + 1, false);
  }

  // The next end comes first; of those that are over, the last one.
  function compareEnds(list) {
    const over = (one) => one.notAfter < survey.now;
    return (a, b) => {
      const one = list[a], other = list[b];
      if (over(one) !== over(other)) return over(one) ? 1 : -1;
      return over(one) ? other.notAfter - one.notAfter : one.notAfter - other.notAfter;
    };
  }

  function certificateRanks(key) {
    const list = survey.certificates;
    if (key === 'ends') {
      return ranksOf(list.map((one) => one.problem ? '' : one.notAfter), compareEnds(list));
    }
    if (key === 'files') return ranksOf(list.map((one) => one.files), (a, b) => list[a].files - list[b].files);
    return ranksOf(list.map((one) => one[key] ?? ''));
  }

  function sortCertificates(list) {
    const places = cached('places', () => new Map(survey.certificates.map((one, n) => [one, n])));
    const {ranks, empty} = cached(`certificate ${asked.csort}`, () => certificateRanks(asked.csort));
    return ordered(list, (one) => ranks[places.get(one)], empty, asked.corder === 'down');
  }

  // ---- answers ----

  function files() {
    let found = new Uint32Array(survey.files);
    for (let file = 0; file < survey.files; ++file) found[file] = file;
    for (const test of fileTests()) found = found.filter(test);
    return sortFiles(found);
  }

  function certificates() {
    const tests = certificateTests();
    return sortCertificates(survey.certificates.filter((one) => tests.every((test) => test(one))));
  }

  // The order after a click on a column: up, down, and back to the first one.
  function nextOrder(column, sort, order) {
    if (asked[sort] !== column) return {[sort]: column, [order]: 'up'};
    if (asked[order] === 'up') return {[order]: 'down'};
    return {[sort]: defaults[sort], [order]: 'up'};
  }

  return {asked, defaults, filters, isFiltered, readAddress, writeAddress, files, certificates, nextOrder, roleOf};
})();
