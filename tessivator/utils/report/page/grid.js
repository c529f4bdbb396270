// A list of any length: only the rows that are seen are drawn. The grid is one tab stop; arrow keys move among its rows
// and, above the first one, among the column heads, which sort.
class Grid {
  // `columns` are [key, label]; fill(cells, item) draws a row, open(place) shows it, sort(key) is asked by a head.
  constructor(root, {label, columns, fill, open, sort}) {
    Object.assign(this, {root, columns, fill, open, sort, items: [], active: 0, headColumn: 0, drawn: []});
    this.tallest = 12000000;  // browsers cap the height of an element; a longer list scrolls faster than its bar
    this.head = dom.make('div', 'row head');
    this.rows = dom.make('div', 'rows');
    this.spacer = dom.make('div', 'spacer', null, this.rows);
    this.nothing = dom.make('p', 'nothing', 'Nothing matches.');
    const body = dom.make('div', 'body', null, this.spacer, this.nothing);
    const headGroup = dom.make('div', 'heads', null, this.head);
    for (const [element, role] of [
             [root, 'grid'],
             [headGroup, 'rowgroup'],
             [body, 'rowgroup'],
             [this.head, 'row'],
             [this.spacer, 'presentation'],
             [this.rows, 'presentation'],
    ]) {
      element.setAttribute('role', role);
    }
    this.head.setAttribute('aria-rowindex', 1);
    root.tabIndex = 0;
    root.setAttribute('aria-label', label);
    root.setAttribute('aria-colcount', columns.length);
    root.append(headGroup, body);
    columns.forEach(([key, text], n) => this.head.append(this.newHead(key, text, n)));
    this.listen();
  }

  newHead(key, text, n) {
    const cell = dom.make('div', '', text, dom.make('span', 'arrow'));
    cell.id = `${this.root.id}-${key}`;
    cell.dataset.key = key;
    cell.setAttribute('role', 'columnheader');
    cell.setAttribute('aria-colindex', n + 1);
    cell.addEventListener('click', () => this.sort(key));
    return cell;
  }

  listen() {
    let drawing = false;
    this.root.addEventListener('scroll', () => {
      if (drawing) return;
      drawing = true;
      requestAnimationFrame(() => {
        drawing = false;
        this.draw();
      });
    });
    this.rows.addEventListener('click', (event) => {
      const row = event.target.closest('.row');
      if (row && getSelection().isCollapsed) this.open(row.place);
    });
    this.root.addEventListener('keydown', (event) => {
      if (event.ctrlKey || event.altKey || event.metaKey) return;
      if (this.active < 0 ? this.headKey(event.key) : this.rowKey(event.key)) event.preventDefault();
    });
    this.root.addEventListener('blur', () => {
      if (this.active < 0) this.moveTo(0);
    });
    addEventListener('resize', () => this.draw());
  }

  rowKey(key) {
    const page = Math.max(1, Math.floor(this.seen() / this.height()) - 1);
    const places = {
      ArrowDown: this.active + 1,
      ArrowUp: this.active - 1,
      PageDown: this.active + page,
      PageUp: Math.max(0, this.active - page),
      Home: 0,
      End: this.items.length - 1,
    };
    if (key in places) {
      this.moveTo(places[key]);
    } else if (key === 'Enter' || key === ' ') {
      this.open(this.active);
    } else {
      return false;
    }
    return true;
  }

  headKey(key) {
    const last = this.columns.length - 1;
    const columns = {
      ArrowLeft: Math.max(0, this.headColumn - 1),
      ArrowRight: Math.min(last, this.headColumn + 1),
      Home: 0,
      End: last,
    };
    if (key in columns) {
      this.headColumn = columns[key];
      this.draw();
    } else if (key === 'ArrowDown') {
      this.moveTo(0);
    } else if (key === 'Enter' || key === ' ') {
      this.sort(this.columns[this.headColumn][0]);
      this.moveTo(-1);
    } else {
      return false;
    }
    return true;
  }

  height() {
    return parseFloat(getComputedStyle(this.root).getPropertyValue('--row'));
  }

  // Pixels below the heads.
  seen() {
    return this.root.clientHeight - this.head.offsetHeight;
  }

  // Pixels of the list to one pixel of the bar.
  ratio() {
    const whole = this.items.length * this.height(), seen = this.seen();
    const bar = Math.min(whole, this.tallest);
    return bar <= seen ? 1 : (whole - seen) / (bar - seen);
  }

  newRow() {
    const row = dom.make('div', 'row');
    row.setAttribute('role', 'row');
    row.id = `${this.root.id}-row${this.drawn.length}`;
    this.columns.forEach(([key], n) => {
      const cell = dom.make('div', key);
      cell.setAttribute('role', 'gridcell');
      cell.setAttribute('aria-colindex', n + 1);
      row.append(cell);
    });
    this.rows.append(row);
    return row;
  }

  fillRow(row, place) {
    row.place = place;
    row.setAttribute('aria-rowindex', place + 2);
    row.setAttribute('aria-selected', place === this.active);
    if (row.item === this.items[place]) return;
    row.item = this.items[place];
    this.fill(row.children, row.item);
  }

  draw() {
    const {root, drawn, items} = this, height = this.height();
    if (!root.clientHeight) return;  // hidden
    this.spacer.style.height = `${Math.min(items.length * height, this.tallest)}px`;
    const top = root.scrollTop * this.ratio();
    const first = Math.max(0, Math.min(Math.floor(top / height), items.length - 1));
    const needed = Math.max(0, Math.min(Math.ceil(this.seen() / height) + 2, items.length - first));
    while (drawn.length < needed) drawn.push(this.newRow());
    while (drawn.length > needed) drawn.pop().remove();
    drawn.forEach((row, i) => this.fillRow(row, first + i));
    this.rows.style.transform = `translateY(${root.scrollTop - (top - first * height)}px)`;
    this.tellActive();
  }

  tellActive() {
    const heads = [...this.head.children];
    const current = this.active < 0 ? heads[this.headColumn] : this.drawn.find((row) => row.place === this.active);
    for (const one of [...heads, ...this.drawn]) one.classList.toggle('active', one === current);
    if (current) {
      this.root.setAttribute('aria-activedescendant', current.id);
    } else {
      this.root.removeAttribute('aria-activedescendant');
    }
  }

  // Shows other items, from the first one on. `column` is the one that they are sorted by.
  show(items, column, down) {
    this.items = items;
    this.active = 0;
    this.root.setAttribute('aria-rowcount', items.length + 1);
    this.nothing.hidden = items.length !== 0;
    this.root.scrollTop = 0;
    for (const row of this.drawn) row.item = null;
    for (const cell of this.head.children) {
      const own = cell.dataset.key === column;
      const direction = down ? 'descending' : 'ascending';
      cell.setAttribute('aria-sort', own ? direction : 'none');
      cell.querySelector('.arrow').textContent = own ? {ascending: '▲', descending: '▼'}[direction] : '';
    }
    this.draw();
  }

  // -1 is the heads.
  moveTo(place) {
    this.active = Math.max(-1, Math.min(place, this.items.length - 1));
    const scale = this.ratio(), height = this.height(), row = Math.max(0, this.active);
    const top = this.root.scrollTop * scale;
    const wanted = Math.min(row * height, Math.max(top, (row + 1) * height - this.seen()));
    if (Math.abs(wanted - top) > 0.5) this.root.scrollTop = wanted / scale;
    this.draw();
  }
}
