// What the details say of one file: signatures, version tables, codes of packages. All of it stays text.
const facts = (() => {
  const {make, bdi} = dom;

  function term(list, name, value) {
    if (value) list.append(make('dt', '', name), make('dd', '', null, bdi(value)));
  }

  // Who signed: the certificate's holder, or what the signature says when it carries none.
  function signerWords(signer) {
    const one = signer.certificate === undefined ? null : survey.certificateAt(signer.certificate);
    return one?.label || `${signer.issuer ?? ''} ${signer.serial ?? ''}`.trim() || 'unknown';
  }

  const stampKinds = {countersignature: 'counter-signature', rfc3161: 'RFC 3161'};

  function signatureCard(one, title) {
    const list = make('dl');
    term(list, 'Digest', one.digest);
    if (one.matches !== undefined) term(list, 'Of this file', one.matches ? 'yes' : 'no, it does not match');
    for (const signer of one.signers ?? []) {
      term(list, 'Signer', signerWords(signer));
      term(list, 'Program', signer.program);
      term(list, 'Address', signer.address);
    }
    for (const stamp of one.stamps ?? []) {
      const kind = stampKinds[stamp.kind] ?? stamp.kind;
      term(list, 'Time stamp', `${stamp.time ?? 'no time'}, ${kind}, by ${signerWords(stamp)}`);
    }
    if (!one.signers) term(list, 'Signer', 'none that can be read');
    const nested = (one.nested ?? []).map((inner, n) => signatureCard(inner, `Nested signature ${n + 1}`));
    return make('article', 'certificate', null, make('h4', '', title), list, ...nested);
  }

  function signatures(about) {
    if (!about.signatures) return [];
    const cards = about.signatures.map((one, n) => signatureCard(one, `Signature ${n + 1}`));
    const note = make('p', 'note', 'What a publisher calls the program is text that anyone can write.');
    const isNamed =
        about.signatures.some((one) => (one.signers ?? []).some(({program, address}) => program || address));
    return [make('h3', '', 'Signatures'), ...cards, ...(isNamed ? [note] : [])];
  }

  function versionTables(about) {
    const parts = (about.tables ?? []).map((table) => {
      const list = make('dl');
      for (const {name = '', value} of table.values ?? []) term(list, name, value);
      const language = table.language.toString(16).padStart(4, '0');
      return make(
          'article', 'certificate', null, make('h4', '', `Language ${language}, code page ${table.codePage}`), list);
    });
    return parts.length ? [make('h3', '', 'Version strings'), ...parts] : [];
  }

  const terms = [
    ['productCode', 'ProductCode'],
    ['upgradeCode', 'UpgradeCode'],
    ['packageCode', 'Package code'],
    ['productLanguage', 'Product language'],
    ['architecture', 'Architecture'],
    ['languages', 'Languages'],
    ['fileVersion', 'File version'],
    ['linked', 'Linked'],
    ['installerRule', 'Installer by'],
  ];

  function more(about) {
    const list = make('dl');
    for (const [key, name] of terms) term(list, name, about[key]);
    if (about.members !== undefined) term(list, 'Catalogue of', dom.counted(about.members, 'member', 'members'));
    for (const {algorithm, value} of about.digests ?? []) term(list, `Signed part, ${algorithm}`, value);
    const problems = (about.problems ?? []).map(({code, count}) => count > 1 ? `${code} (${count})` : code);
    term(list, 'Problems', problems.join(', '));
    return list.childElementCount ? [make('h3', '', 'More'), list] : [];
  }

  // Elements for the dialog; none without details.
  function of (file) {
    const about = survey.detailsOf(file);
    if (!about) return [];
    if (about.isCut) return [make('p', 'note', 'Its details are too long for this page; they are in details.jsonl.')];
    return [...signatures(about), ...versionTables(about), ...more(about)];
  }

  return {of};
})();
