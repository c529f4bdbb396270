// The start: called when the last chunk of the data has been read.
const page = (() => {
  const mostRoots = 3;
  const {byId} = dom;

  function heading() {
    const folders = survey.roots.map((root) => /[^/\\]/.test(root) ? root.slice(0, -1) : root).filter((root) => root);
    if (folders.length === 0) return '';
    const named = folders.slice(0, mostRoots);
    if (folders.length > mostRoots) named.push(`${folders.length - mostRoots} more`);
    const last = named.pop();
    return named.length ? `of ${named.join(', ')} and ${last}` : `of ${last}`;
  }

  function about() {
    const words = `${dom.counted(survey.files, 'file', 'files')}. Validity of certificates as of ` +
        `${dom.day(survey.now)}; no signature was verified`;
    if (!survey.hasDetails) return `${words}, and time stamps were not looked at.`;
    return survey.isDetailed() ? `${words}.` :
                                 `${words}. The page holds verdicts, signers and time stamps; the rest of so many ` +
            'files is in details.jsonl.';
  }

  function start(incomplete) {
    dom.put(byId('root'), heading(), 500);
    document.title = `Survey ${heading().slice(0, 200)}`.trim();
    byId('about').textContent = about();
    const rest = incomplete.includes('early') ? '' : ' left out';
    byId('incomplete').hidden = incomplete === '';
    byId('incomplete').textContent = `This survey is incomplete: ${incomplete}${rest}.`;
    byId('main').hidden = false;
    query.readAddress();
    for (const part of [lists, summary, controls, sheet, output]) part.start();
    lists.refresh();
    document.documentElement.dataset.ready = 'yes';
  }

  return {start};
})();
