// The survey's data: columns of numbers, so that a million files take no million objects.
const survey = (() => {
  const sha1Width = 27, sha256Width = 43;  // characters of base64
  const soon = 90 * 86400;                 // seconds
  const base64 = 'ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/';
  const base64Values = new Map([...base64].map((digit, value) => [digit, value]));

  const raw = [];     // texts as the page numbers them
  const textOf = [];  // page number -> number of the distinct text
  const setOf = [];   // page number -> number of the distinct list of certificates
  const texts = [], textNumbers = new Map();
  const sets = [], setNumbers = new Map();
  const certificates = [], certificateOf = [], certificateNumbers = new Map();
  const names = [];
  const digestChunks = [], detailChunks = [], chunkStarts = [];
  const columns = {installer: new Uint8Array(1024), verdict: new Uint8Array(1024)};
  for (const column of TEXT_COLUMNS) columns[column] = new Uint32Array(1024);
  const self = {
    texts,
    textNumbers,
    sets,
    certificates,
    names,
    columns,
    files: 0,
    now: 0,
    hasDetails: false,
    root: '',
    roots: []
  };

  function number(list, numbers, key, value) {
    let n = numbers.get(key);
    if (n === undefined) {
      n = list.length;
      numbers.set(key, n);
      list.push(value);
    }
    return n;
  }

  function text(n) {
    textOf[n] ??= number(texts, textNumbers, raw[n], raw[n]);
    return textOf[n];
  }

  function set(n) {
    setOf[n] ??= number(sets, setNumbers, raw[n], {list: raw[n], files: 0});
    return setOf[n];
  }

  function grow(key, end) {
    let size = columns[key].length;
    if (size >= end) return;
    while (size < end) size *= 2;
    const larger = new columns[key].constructor(size);
    larger.set(columns[key]);
    columns[key] = larger;
  }

  function addCertificate(values) {
    const one = Object.fromEntries(CERTIFICATE_FIELDS.map((field, i) => [field, values[i]]));
    Object.assign(one, {files: 0, signs: 0});
    certificateOf.push(number(certificates, certificateNumbers, one.sha256 || one.name, one));
  }

  function addRows(chunk) {
    const start = self.files, end = start + chunk[PART.file].length;
    for (const key of Object.keys(columns)) grow(key, end);
    chunkStarts.push(start);
    digestChunks.push(chunk[PART.digests]);
    for (const name of chunk[PART.file]) names.push(name);
    for (const key of TEXT_COLUMNS) {
      const column = columns[key], numberOf = key === 'certificates' ? set : text;
      chunk[key].forEach((n, i) => {
        column[start + i] = numberOf(n);
      });
    }
    for (let i = 0; i < end - start; ++i) {
      columns.installer[start + i] = '01 '.indexOf(chunk[PART.installer][i]);
      columns.verdict[start + i] = chunk[PART.verdict].charCodeAt(i) - 48;
    }
    self.files = end;
  }

  // Called by the page behind each chunk.
  function take() {
    const element = document.currentScript.previousElementSibling;
    const isLines = element.type === 'text/plain';
    const chunk = isLines ? element.textContent : JSON.parse(element.textContent);
    element.remove();
    document.currentScript.remove();
    if (isLines) {
      detailChunks.push(chunk);
      return;
    }
    if (chunk.now !== undefined) {
      self.now = chunk.now;
      self.hasDetails = chunk.hasDetails;
      prepare();
      page.start(chunk.incomplete);
      return;
    }
    for (const one of chunk[PART.texts]) raw.push(one);
    chunk[PART.newCertificates].forEach(addCertificate);
    addRows(chunk);
    dom.byId('about').textContent = `Reading the survey… ${dom.count(self.files)} files`;
  }

  // ---- chunks ----

  function chunkOf(file) {
    let low = 0, high = chunkStarts.length;
    while (high - low > 1) {
      const middle = (low + high) >> 1;
      if (chunkStarts[middle] <= file) {
        low = middle;
      } else {
        high = middle;
      }
    }
    return low;
  }

  // What the dialog shows of a file; null without details.
  function detailsOf(file) {
    const chunk = chunkOf(file);
    const line = detailChunks[chunk]?.split('\n')[file - chunkStarts[chunk]];
    return line ? JSON.parse(line) : null;
  }

  // ---- digests ----

  function digestsOf(file) {
    const chunk = chunkOf(file), at = (file - chunkStarts[chunk]) * (sha1Width + sha256Width);
    return digestChunks[chunk].slice(at, at + sha1Width + sha256Width);
  }

  function hexOf(encoded, digits) {
    let hex = '';
    for (let i = 0; i < encoded.length && encoded[i] !== ' '; i += 2) {
      const bits = base64Values.get(encoded[i]) << 6 | (base64Values.get(encoded[i + 1]) ?? 0);
      hex += bits.toString(16).padStart(3, '0');
    }
    return hex.slice(0, digits);
  }

  // The front of a digest that is written in hexadecimal, as far as whole characters of base64 go.
  function base64Of(hex) {
    let encoded = '';
    for (let i = 0; i + 3 <= hex.length; i += 3) {
      const bits = parseInt(hex.slice(i, i + 3), 16);
      encoded += base64[bits >> 6] + base64[bits & 63];
    }
    return encoded;
  }

  const sha1Of = (file) => hexOf(digestsOf(file).slice(0, sha1Width), 40);
  const sha256Of = (file) => hexOf(digestsOf(file).slice(sha1Width), 64);

  // A test of files for digests that begin with `hex`.
  function digestTest(hex) {
    const front = base64Of(hex);
    return (file) => {
      const both = digestsOf(file);
      return (both.startsWith(front) && hexOf(both.slice(0, sha1Width), 40).startsWith(hex)) ||
          (both.startsWith(front, sha1Width) && hexOf(both.slice(sha1Width), 64).startsWith(hex));
    };
  }

  // What tells one content from another; empty for a file without digests.
  function contentOf(file) {
    const both = digestsOf(file);
    const sha256 = both.slice(sha1Width).trim();
    return sha256 === '' ? both.slice(0, sha1Width).trim() : sha256;
  }

  // How often each file's content was found, and a number for each content that was found more than once. Fronts of
  // digests, as numbers, rule nearly all files out before texts are compared.
  let copies = null;
  function copiesOf() {
    if (copies) return copies;
    const fronts = new Float64Array(self.files);
    for (let file = 0; file < self.files; ++file) {
      const content = contentOf(file);
      let front = content === '' ? -1 - file : 0;
      for (let i = 0; i < 8 && content !== ''; ++i) front = front * 64 + base64Values.get(content[i]);
      fronts[file] = front;
    }
    const sorted = fronts.slice().sort();
    const repeated = new Set(sorted.filter((front, i) => front === sorted[i + 1]));
    copies = {counts: new Uint32Array(self.files), groups: new Uint32Array(self.files)};
    const groups = new Map();
    for (let file = 0; file < self.files; ++file) {
      if (!repeated.has(fronts[file])) continue;
      const content = contentOf(file);
      if (!groups.has(content)) groups.set(content, []);
      groups.get(content).push(file);
    }
    let group = 0;
    for (const files of groups.values()) {
      ++group;
      for (const file of files) {
        copies.counts[file] = files.length;
        copies.groups[file] = group;
      }
    }
    return copies;
  }

  // ---- what is derived once ----

  // Of a certificate: '', 'soon', 'ended', or 'unknown' when its file is missing.
  function validityOf(one) {
    if (one.problem) return 'unknown';
    if (one.notAfter >= self.now + soon) return '';
    return one.notAfter < self.now ? 'ended' : 'soon';
  }

  function prepareSet(one) {
    const [signers, others, stamps] = one.list.split('|');
    const named = (list) => list === '' ? [] : list.split(',').map((n) => certificates[certificateOf[Number(n)]]);
    one.signers = named(signers);
    one.others = named(others);
    one.stamps = named(stamps);
    one.all = [...new Set([...one.signers, ...one.others, ...one.stamps])];
    one.identities = new Map(one.signers.map((signer) => [signer.identity, signer.label]));
    one.label = [...one.identities.values()].join('; ');
    const states = one.signers.map(validityOf);
    one.validity = ['ended', 'soon', 'unknown'].find((state) => states.includes(state)) ?? '';
    for (const certificate of one.all) certificate.files += one.files;
    for (const certificate of new Set(one.signers)) certificate.signs += one.files;
    for (const certificate of one.stamps) certificate.isTimeStamping = true;
  }

  function prepare() {
    for (let file = 0; file < self.files; ++file) ++sets[columns.certificates[file]].files;
    sets.forEach(prepareSet);
    // Details name certificates of files that no record tells of.
    self.certificates = certificates.filter((one) => one.files > 0);
    findRoots();
  }

  // ---- folders ----

  // The part of `path` up to the next separator behind `from`: the first name of an absolute path, or the next one.
  const step = /[/\\]*[^/\\]*[/\\]?/y;
  function stepBehind(path, from) {
    step.lastIndex = from;
    return path.slice(0, from) + step.exec(path)[0];
  }

  function commonOf(folders) {
    let common = folders[0] ?? '';
    for (const folder of folders) {
      while (!folder.startsWith(common)) {
        const shorter = common.slice(0, -1);
        common = shorter.slice(0, Math.max(shorter.lastIndexOf('/'), shorter.lastIndexOf('\\')) + 1);
      }
    }
    return common;
  }

  // The folder that all files have in common, or where they have none, those of each drive, server or top folder.
  function findRoots() {
    const met = new Uint8Array(texts.length);
    for (let file = 0; file < self.files; ++file) met[columns.folder[file]] = 1;
    const folders = texts.filter((_, n) => met[n]);
    const common = commonOf(folders);
    if (/[^/\\]/.test(common)) {
      self.root = common;
      self.roots = [common];
      return;
    }
    const groups = new Map();
    for (const folder of folders) {
      const first = stepBehind(folder, 0);
      if (!groups.has(first)) groups.set(first, []);
      groups.get(first).push(folder);
    }
    self.roots = [...groups.values()].map(commonOf);
  }

  const folderOf = (file) => texts[columns.folder[file]];
  const setFor = (file) => sets[columns.certificates[file]];
  const verdictOf = (file) => columns.verdict[file];
  const wordsOf = (file) => texts[columns.signature[file]] || VERDICT_WORDS[verdictOf(file)];
  const aboutVerdict = (file) => wordsOf(file).slice(VERDICT_WORDS[verdictOf(file)].length + 1);
  const isSigned = (file) => verdictOf(file) <= VERDICT.Ended || verdictOf(file) === VERDICT.DoesNotMatch;

  // Whether details, or a report without them, know this verdict.
  const canBe = (verdict) => verdict >= VERDICT.Unsigned || (verdict === VERDICT.Signed) !== self.hasDetails;

  // How a file's verdict looks: well, 'soon' or 'bad' where somebody should act, 'past' where nobody knows.
  function looksOf(file) {
    switch (verdictOf(file)) {
      case VERDICT.Signed:
        return {ended: 'past', unknown: 'past'}[setFor(file).validity] ?? setFor(file).validity;
      case VERDICT.ValidUntil:
        return aboutVerdict(file) < dom.day(self.now + soon) ? 'soon' : '';
      case VERDICT.Ended:
      case VERDICT.Undecodable:
        return 'soon';
      case VERDICT.DoesNotMatch:
        return 'bad';
      default:
        return '';
    }
  }
  const isPackage = (file) => /\.msi$/i.test(names[file]);

  return Object.assign(self, {
    take,
    sha1Of,
    sha256Of,
    digestTest,
    copiesOf,
    validityOf,
    stepBehind,
    folderOf,
    setFor,
    isPackage,
    pathOf: (file) => folderOf(file) + names[file],
    textOf: (file, column) => texts[columns[column][file]],
    isInstaller: (file) => columns.installer[file] === 1,
    verdictOf,
    wordsOf,
    aboutVerdict,
    isSigned,
    canBe,
    isDetailed: () => detailChunks.length > 0,
    looksOf,
    detailsOf,
    certificateAt: (n) => certificates[certificateOf[n]],
  });
})();
