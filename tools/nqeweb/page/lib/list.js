// A list of any length. Only the rows that are seen are elements; two rows without content stand for all above and below.
import {el, fill} from './dom.js';
import {number} from './format.js';

const kRow = 26;
const kHead = 28;
const kSpare = 12;      // rows above and below what is seen
const kTallest = 16e6;  // pixels; browsers draw nothing further down

export class List {
  // columns: [{name, title, about, numeric, width (in characters), sort, draw(record)}]. `told` says how much there is.
  constructor({columns, caption, sorted, onSort, told, signal}) {
    Object.assign(this, {columns, onSort, told, sorted});
    this.rows = new Map();
    this.active = 0;
    this.head = el('tr', {'aria-rowindex': 1});
    this.above = el('tr', {class: 'pad', 'aria-hidden': 'true'}, el('td', {colspan: columns.length}));
    this.below = el('tr', {class: 'pad', 'aria-hidden': 'true'}, el('td', {colspan: columns.length}));
    this.body = el('tbody', {}, this.above, this.below);
    this.sizes = el('colgroup');
    this.table = el('table', {'aria-rowcount': -1}, el('caption', {class: 'unseen'}, caption), this.sizes, el('thead', {}, this.head), this.body);
    this.node = el('div', {class: 'list', tabindex: 0, role: 'region', 'aria-label': `${caption}. Arrow keys go from entry to entry.`}, this.table);
    this.count = el('span', {role: 'status', 'aria-live': 'polite'});
    this.seen = el('span');
    this.status = el('div', {class: 'below'}, this.count, this.seen);
    let asked = false;
    const later = () => {
      if (asked) return;
      asked = true;
      requestAnimationFrame(() => { asked = false; this.draw(); });
    };
    this.later = later;
    this.node.addEventListener('scroll', later, {passive: true});
    this.node.addEventListener('keydown', event => this.press(event));
    const watch = new ResizeObserver(later);
    watch.observe(this.node);
    signal.addEventListener('abort', () => watch.disconnect());
    this.drawHead();
  }

  drawHead() {
    const by = this.sorted?.replace(/^-/, '');
    const down = this.sorted?.startsWith('-');
    fill(this.head, this.columns.map(column => {
      const is = column.name === by;
      const words = [column.title ?? column.name, is ? (down ? ' ↓' : ' ↑') : ''];
      const content = this.onSort && column.sort !== false
        ? el('button', {type: 'button', title: column.about, onclick: () => this.onSort(is && !down ? `-${column.name}` : is ? '' : column.name)}, words)
        : el('span', {title: column.about}, words);
      return el('th', {scope: 'col', class: column.numeric ? 'num' : undefined, 'aria-sort': is ? (down ? 'descending' : 'ascending') : undefined}, content);
    }));
    fill(this.sizes, this.columns.map(column => el('col', {style: {width: `calc(${column.width}ch + 22px)`}})));
    this.table.style.width = `calc(${this.columns.reduce((sum, column) => sum + column.width, 0)}ch + ${22 * this.columns.length}px)`;
  }

  use(source) {
    this.source = source;
    for (const row of this.rows.values()) row.remove();
    this.rows.clear();
    this.draw();
  }

  // Rows that were drawn before their records came, or whose records are others now.
  renew() {
    for (const [index, row] of this.rows) {
      if (row.record !== this.source.at(index)) {
        row.remove();
        this.rows.delete(index);
      }
    }
    this.draw();
  }

  // More rows than pixels: places are then in proportion.
  get scale() { return Math.max(1, this.source.length * kRow / kTallest); }

  draw() {
    if (!this.source || !this.node.isConnected) return;
    const {length} = this.source;
    // A short list takes no more room than it needs.
    this.node.style.height = this.source.known && length < 400 ? `min(${(length + 2) * kRow}px, var(--list-height))` : 'var(--list-height)';
    const high = this.node.clientHeight;
    const tall = length * kRow / this.scale;
    const top = this.node.scrollTop;
    const place = this.scale > 1 ? top / Math.max(1, tall - high) * (length * kRow - high) : top;
    const visible = Math.ceil(high / kRow);
    const from = Math.max(0, Math.min(Math.floor(place / kRow), length - visible));
    const first = Math.max(0, from - kSpare);
    const last = Math.min(length, from + visible + kSpare);
    this.source.want(first, Math.max(first, last - 1));
    for (const [index, row] of this.rows) {
      if (index < first || index >= last || row.record !== this.source.at(index)) {
        row.remove();
        this.rows.delete(index);
      }
    }
    let next = this.below;
    for (let index = last - 1; index >= first; index--) {
      let row = this.rows.get(index);
      if (!row) {
        row = this.drawRow(index);
        this.rows.set(index, row);
        this.body.insertBefore(row, next);
      }
      next = row;
    }
    const shift = this.scale > 1 ? top - (place - first * kRow) : first * kRow;
    this.above.firstChild.style.height = `${Math.max(0, shift)}px`;
    this.below.firstChild.style.height = `${Math.max(0, tall - Math.max(0, shift) - (last - first) * kRow)}px`;
    this.above.hidden = shift <= 0;
    this.table.setAttribute('aria-rowcount', this.source.known ? length + 1 : -1);
    this.tell(from, Math.min(length, Math.ceil((place + high - kHead) / kRow)));
  }

  tell(from, to) {
    const {length, known} = this.source;
    const words = this.told(length, known);
    if (this.count.textContent !== words) this.count.textContent = words;
    this.seen.textContent = length ? `${number(from + 1)} – ${number(Math.max(from + 1, to))}` : '';
  }

  drawRow(index) {
    const record = this.source.at(index);
    const row = el('tr', {'aria-rowindex': index + 2});
    if (index === this.active) row.classList.add('at');
    row.record = record;
    if (!record) {
      row.classList.add('waits');
      row.append(el('td', {colspan: this.columns.length}, index < this.source.length ? '…' : ''));
      return row;
    }
    row.append(...this.columns.map((column, i) => {
      const content = column.draw(record);
      return el(i ? 'td' : 'th', {scope: i ? undefined : 'row', class: column.numeric ? 'num' : undefined, title: typeof content === 'string' && content.length > column.width ? content : undefined}, content);
    }));
    return row;
  }

  press(event) {
    const page = Math.max(1, Math.floor(this.node.clientHeight / kRow) - 2);
    const steps = {ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page, Home: -Infinity, End: Infinity};
    if (event.altKey || event.metaKey || event.target.closest('thead')) return;
    if (event.key in steps) {
      event.preventDefault();
      this.go(Math.max(0, Math.min(this.source.length - 1, this.active + steps[event.key])));
    } else if (event.key === 'Enter' && event.target === this.node) {
      this.rows.get(this.active)?.querySelector('a')?.click();
    }
  }

  go(index) {
    this.rows.get(this.active)?.classList.remove('at');
    this.active = index;
    const high = this.node.clientHeight - kRow * 1.2;
    const {scale, length} = {scale: this.scale, length: this.source.length};
    const place = index * kRow;
    const node = this.node;
    if (scale > 1) {
      const tall = length * kRow / scale;
      const shown = node.scrollTop / Math.max(1, tall - node.clientHeight) * (length * kRow - node.clientHeight);
      if (place < shown || place > shown + high - kRow) node.scrollTop = place / (length * kRow - node.clientHeight) * (tall - node.clientHeight);
    } else if (place < node.scrollTop) {
      node.scrollTop = place;
    } else if (place + kRow > node.scrollTop + high) {
      node.scrollTop = place + kRow - high;
    }
    this.draw();
    const row = this.rows.get(index);
    row?.classList.add('at');
    (row?.querySelector('a') ?? this.node).focus({preventScroll: true});
  }
}

// A width for each column from its name and the first records.
export function widths(columns, records, text) {
  for (const column of columns) {
    const longest = records.slice(0, 200).reduce((most, record) => Math.max(most, text(record, column).length), 0);
    column.width = Math.min(42, Math.max(4, (column.title ?? column.name).length + (column.sort === false ? 0 : 2), longest));
  }
}
