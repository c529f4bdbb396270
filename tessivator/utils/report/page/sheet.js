// One row of a list in full, in a dialog.
const sheet = (() => {
  const {byId, make, bdi} = dom;

  function copyButton(name, value) {
    const button = dom.button('quiet small copy', 'Copy', async () => {
      await output.copy(value);
      button.textContent = 'Copied';
      setTimeout(() => dom.put(button, 'Copy'), 1500);
    });
    button.setAttribute('aria-label', `Copy ${name}`);
    return button;
  }

  function term(list, name, ...content) {
    list.append(make('dt', '', name), make('dd', '', null, ...content));
  }
  function text(list, name, content) {
    if (content) term(list, name, bdi(content));
  }
  function copied(list, name, content, element) {
    if (content) term(list, name, element, copyButton(name, content));
  }
  const code = (list, name, content) => copied(list, name, content, make('span', 'code', content));

  function validityBadge(one) {
    if (one.problem) return make('span', 'badge bad', one.problem);
    const state = survey.validityOf(one);
    if (state === 'ended') {
      return make('span', 'badge past', `past its end date, by ${dom.distance(survey.now - one.notAfter)}`);
    }
    if (state === 'soon') return make('span', 'badge warn', `ends in ${dom.distance(one.notAfter - survey.now)}`);
    return make('span', 'badge', 'in date');
  }

  function certificateFacts(one) {
    const list = make('dl');
    text(list, 'Subject', one.subject);
    text(list, 'Issuer', one.issuer);
    if (!one.problem) term(list, 'Valid', `${dom.day(one.notBefore)} to ${dom.day(one.notAfter)}`);
    text(list, 'Key', one.key);
    text(list, 'Usages', one.usages);
    code(list, 'Serial', one.serial);
    code(list, 'SHA-1', one.sha1);
    code(list, 'SHA-256', one.sha256);
    code(list, 'File', `${one.name}.cer`);
    return list;
  }

  function filesButton(one) {
    return dom.button('quiet', `Show its ${dom.counted(one.files, 'file', 'files')}`, () => {
      byId('details').close();
      lists.ask({...query.defaults, certificate: one.name});
    });
  }

  const roleWords = {signer: 'signer', other: 'carried along', stamp: 'for time stamps'};

  function certificateCard(one, role) {
    const badges = [make('span', 'badge', roleWords[role]), validityBadge(one)];
    return make('article', 'certificate', null, make('h4', '', null, bdi(one.label)), ...badges, certificateFacts(one));
  }

  function copiesLine(file) {
    const others = survey.copiesOf().counts[file] - 1;
    if (others < 1) return [];
    const words = dom.counted(others, 'other file has', 'other files have');
    return [make('p', 'note', `${words} the same content. `, dom.button('quiet small', 'Show them all', () => {
      byId('details').close();
      lists.ask({...query.defaults, query: survey.sha256Of(file) || survey.sha1Of(file)});
    }))];
  }

  function fileSheet(file) {
    const one = survey.setFor(file);
    const list = make('dl');
    copied(list, 'Path', survey.pathOf(file), bdi(survey.pathOf(file)));
    text(list, 'Product', survey.textOf(file, 'product'));
    text(list, 'Version', survey.textOf(file, 'version'));
    text(list, 'Company', survey.textOf(file, 'company'));
    term(list, 'Installer', survey.isInstaller(file) ? 'yes' : 'no');
    text(list, 'Signature', survey.wordsOf(file));
    code(list, 'SHA-1', survey.sha1Of(file));
    code(list, 'SHA-256', survey.sha256Of(file));
    const certificates = [
      ...one.signers.map((signer) => certificateCard(signer, 'signer')),
      ...one.all.slice(one.signers.length)
          .map((other) => certificateCard(other, other.isTimeStamping ? 'stamp' : 'other')),
    ];
    const parts = [make('h2', '', null, bdi(survey.names[file])), list, ...copiesLine(file), ...facts.of(file)];
    if (certificates.length) parts.push(make('h3', '', 'Certificates'));
    if (one.validity === 'ended' && !survey.hasDetails) {
      parts.push(make(
          'p', 'note',
          'Time stamps were not looked at: a signature that was stamped before the ' +
              'certificate ended is as good as ever.'));
    }
    return [...parts, ...certificates];
  }

  function certificateSheet(one) {
    const badges = [make('span', 'badge', roleWords[query.roleOf(one)]), validityBadge(one)];
    const heading = make('h2', '', null, bdi(one.label));
    return [heading, ...badges, certificateFacts(one), make('p', 'note', null, filesButton(one))];
  }

  function open(place) {
    const grid = lists.current(), dialog = byId('details');
    if (place < 0 || place >= grid.items.length) return;
    grid.moveTo(place);
    const item = grid.items[place];
    byId('sheet').replaceChildren(...(query.asked.view === 'files' ? fileSheet(item) : certificateSheet(item)));
    byId('sheet').firstElementChild.id = 'details-title';
    byId('previous').disabled = place === 0;
    byId('next').disabled = place === grid.items.length - 1;
    if (!dialog.open) {
      dialog.showModal();
      byId('close').focus();
    }
    dialog.scrollTop = 0;
  }

  function start() {
    const dialog = byId('details');
    byId('close').addEventListener('click', () => dialog.close());
    byId('previous').addEventListener('click', () => open(lists.current().active - 1));
    byId('next').addEventListener('click', () => open(lists.current().active + 1));
    dialog.addEventListener('close', () => lists.current().root.focus({preventScroll: true}));
    dialog.addEventListener('click', (event) => {
      if (event.target === dialog) dialog.close();
    });
  }

  return {start, open};
})();
