// Elements, and text that stays text.
const dom = (() => {
  // Characters that show nothing, or turn the direction of what follows, are shown by their numbers.
  const unseen =
      /[\u0000-\u001f\u007f-\u009f\u00ad\u061c\u115f\u180e\u200b-\u200f\u2028-\u202e\u2060-\u2069\ufeff\ufff9-\ufffb]/;
  const allUnseen = new RegExp(unseen.source, 'g');
  const partsAtUnseen = new RegExp(`(${unseen.source})`);

  const byId = (id) => document.getElementById(id);

  function make(tag, className = '', value = null, ...children) {
    const element = document.createElement(tag);
    if (className) element.className = className;
    if (value !== null) put(element, value);
    element.append(...children);
    return element;
  }

  function shown(part) {
    if (part.length !== 1 || !unseen.test(part)) return part;
    return make('span', 'mark', 'U+' + part.charCodeAt(0).toString(16).toUpperCase().padStart(4, '0'));
  }

  function put(element, value, most = Infinity) {
    const text = value.length > most ? value.slice(0, most) + '…' : value;
    if (unseen.test(text)) {
      element.replaceChildren(...text.split(partsAtUnseen).filter((part) => part !== '').map(shown));
    } else {
      element.textContent = text;
    }
    return element;
  }

  // A value of a survey; its direction does not reach what surrounds it.
  const bdi = (value, most) => put(document.createElement('bdi'), value, most);

  function svg(tag, attributes, ...children) {
    const element = document.createElementNS('http://www.w3.org/2000/svg', tag);
    for (const [key, value] of Object.entries(attributes)) element.setAttribute(key, value);
    element.append(...children);
    return element;
  }

  function button(className, label, act) {
    const element = make('button', className, label);
    element.type = 'button';
    element.addEventListener('click', act);
    return element;
  }

  function option(select, value, label) {
    const element = document.createElement('option');
    element.value = value;
    element.textContent = label;
    select.append(element);
  }

  const count = (n) => n.toLocaleString('en');
  const counted = (n, one, many) => `${count(n)} ${n === 1 ? one : many}`;
  const day = (seconds) => new Date(seconds * 1000).toISOString().slice(0, 10);

  function distance(seconds) {
    const days = Math.floor(seconds / 86400);
    if (days < 1) return 'less than a day';
    if (days < 730) return counted(days, 'day', 'days');
    return `${Math.floor(days / 365.25)} years`;
  }

  // For where only text can stand: an option, a title.
  const plain = (label) => `\u2068${label.replace(allUnseen, '\ufffd').slice(0, 80)}\u2069`;

  return {byId, make, put, bdi, svg, button, option, count, counted, day, distance, plain};
})();
