// Curves over time in SVG, with what they show as a table beside them.
import {el, fill, svg, table} from './dom.js';
import {clock, rate as asRate} from './format.js';

const kLeft = 52;
const kBottom = 20;
const kTop = 8;

// A round number that is not below.
function ceiling(value) {
  if (!(value > 0)) return 1;
  const power = 10 ** Math.floor(Math.log10(value));
  return [1, 1.5, 2, 3, 4, 5, 6, 8, 10].map(n => n * power).find(n => n >= value);
}

export class Chart {
  // Series are set with show([{name, points: [[time, value], ...]}], from, to); a point of null is a gap.
  constructor({label, height = 220, format = asRate, signal}) {
    Object.assign(this, {label, height, format});
    this.hidden = new Set();
    this.series = [];
    this.colours = new Map();
    this.drawing = svg('svg', {role: 'img', height, tabindex: 0, 'aria-label': `${label}. Nothing yet.`});
    this.tip = el('div', {class: 'tip', hidden: true});
    this.legend = el('div', {class: 'legend', role: 'group', 'aria-label': 'Curves'});
    this.numbers = el('div', {class: 'wide'});
    this.details = el('details', {}, el('summary', {}, 'As a table'), this.numbers);
    this.node = el('div', {class: 'chart'}, this.drawing, this.tip, this.legend, this.details);
    this.details.addEventListener('toggle', () => this.drawTable());
    this.drawing.addEventListener('pointermove', event => this.cross(event.offsetX));
    this.drawing.addEventListener('pointerleave', () => this.cross(null));
    this.drawing.addEventListener('blur', () => this.cross(null));
    this.drawing.addEventListener('keydown', event => this.press(event));
    const watch = new ResizeObserver(() => this.draw());
    watch.observe(this.node);
    signal.addEventListener('abort', () => watch.disconnect());
  }

  // A curve keeps its colour as long as it is there.
  colour(name) {
    if (!this.colours.has(name)) {
      const used = new Set(this.series.map(s => this.colours.get(s.name)));
      const free = [0, 1, 2, 3, 4, 5, 6, 7].find(n => !used.has(n));
      this.colours.set(name, free ?? this.colours.size % 8);
    }
    return `c${this.colours.get(name)}`;
  }

  show(series, from, to) {
    Object.assign(this, {series, from, to});
    this.draw();
    this.drawLegend();
    this.drawTable();
  }

  get times() { return this.series[0]?.points.map(([time]) => time) ?? []; }
  x(time) { return kLeft + (time - this.from) / (this.to - this.from) * (this.width - kLeft - 8); }
  y(value) { return kTop + (1 - value / this.most) * (this.height - kTop - kBottom); }

  draw() {
    this.width = this.node.clientWidth;
    if (!this.width || !this.to) return;
    const seen = this.series.filter(s => !this.hidden.has(s.name));
    this.most = ceiling(Math.max(0, ...seen.flatMap(s => s.points.map(([, v]) => v ?? 0))));
    const lines = [0, 0.5, 1].map(part => {
      const y = this.y(part * this.most);
      return [svg('line', {class: part ? 'grid' : 'axis', x1: kLeft, x2: this.width - 8, y1: y, y2: y}),
        svg('text', {x: kLeft - 7, y: y + 4, 'text-anchor': 'end'}, this.format(part * this.most))];
    });
    const steps = this.width < 480 ? 2 : 5;
    const marks = Array.from({length: steps + 1}, (_, i) => this.from + (this.to - this.from) * i / steps);
    const below = marks.map((time, i) => svg('text', {x: this.x(time), y: this.height - 4, 'text-anchor': i === 0 ? 'start' : i === steps ? 'end' : 'middle'},
      i === steps ? 'now' : clock(time).slice(0, 5)));
    this.drawing.setAttribute('viewBox', `0 0 ${this.width} ${this.height}`);
    const newest = seen.map(s => `${s.name} ${this.format(s.points.at(-1)?.[1] ?? 0)}`).slice(0, 4).join(', ');
    this.drawing.setAttribute('aria-label', `${this.label}. ${newest ? `Now: ${newest}.` : 'Nothing yet.'} Arrow keys go through time; the same stands in the table below.`);
    this.line = svg('line', {class: 'cross', y1: kTop, y2: this.height - kBottom, visibility: 'hidden'});
    fill(this.drawing, lines, below, seen.map(s => this.curve(s, seen.length === 1)), this.line);
    if (this.at !== undefined && this.at !== null) this.mark(this.at);
  }

  curve({name, points}, alone) {
    let path = '';
    let pen = false;
    for (const [time, value] of points) {
      if (value === null || value === undefined || time < this.from) { pen = false; continue; }
      path += `${pen ? 'L' : 'M'}${this.x(time).toFixed(1)} ${this.y(value).toFixed(1)}`;
      pen = true;
    }
    if (!path) return null;
    const line = svg('path', {class: `line ${this.colour(name)}`, d: path});
    const whole = alone && !path.slice(1).includes('M') && points.length > 1;
    if (!whole) return line;
    const first = points.find(([time]) => time >= this.from)[0];
    return [svg('path', {class: `area ${this.colour(name)}`, d: `${path}L${this.x(points.at(-1)[0])} ${this.y(0)}L${this.x(first)} ${this.y(0)}Z`}), line];
  }

  drawLegend() {
    // Only the figures change while the curves stay, so that who is at a button stays there.
    const names = this.series.map(s => s.name).join('\n');
    if (names !== this.legendOf) {
      this.legendOf = names;
      fill(this.legend, this.series.map(s => {
        const button = el('button', {type: 'button', 'aria-pressed': String(!this.hidden.has(s.name)), title: 'Show or hide this curve'},
          el('span', {class: `mark ${this.colour(s.name)}`}), el('span', {}, s.name), el('b'));
        button.addEventListener('click', () => {
          if (!this.hidden.delete(s.name)) this.hidden.add(s.name);
          button.setAttribute('aria-pressed', String(!this.hidden.has(s.name)));
          this.draw();
        });
        return button;
      }));
    }
    this.series.forEach((s, i) => { this.legend.children[i].lastChild.textContent = this.format(s.points.at(-1)?.[1] ?? 0); });
  }

  drawTable() {
    if (!this.details.open) return;
    const every = Math.max(1, Math.ceil(this.times.length / 20));
    const rows = this.times.map((time, i) => [time, i]).filter(([, i]) => (this.times.length - 1 - i) % every === 0).reverse()
      .map(([time, i]) => [clock(time), ...this.series.map(s => ({body: this.format(s.points[i]?.[1] ?? 0), class: 'num'}))]);
    fill(this.numbers, table({caption: this.label, head: ['Time', ...this.series.map(s => ({body: s.name, class: 'num'}))], rows}));
  }

  cross(offset) {
    if (offset === null || !this.times.length) {
      this.at = null;
      this.tip.hidden = true;
      this.line?.setAttribute('visibility', 'hidden');
      return;
    }
    const time = this.from + (offset - kLeft) / (this.width - kLeft - 8) * (this.to - this.from);
    let best = 0;
    this.times.forEach((one, i) => { if (Math.abs(one - time) < Math.abs(this.times[best] - time)) best = i; });
    this.mark(this.times[best]);
  }

  mark(time) {
    const i = this.times.indexOf(time);
    if (i < 0) return this.cross(null);
    this.at = time;
    const x = this.x(time);
    this.line.setAttribute('x1', x);
    this.line.setAttribute('x2', x);
    this.line.setAttribute('visibility', 'visible');
    const rows = this.series.filter(s => !this.hidden.has(s.name)).map(s => [s, s.points[i]?.[1] ?? 0]).sort(([, a], [, b]) => b - a).slice(0, 10);
    fill(this.tip, el('strong', {}, clock(time)), rows.map(([s, value]) =>
      el('div', {}, el('span', {class: `mark ${this.colour(s.name)}`}), el('span', {}, s.name), el('b', {}, this.format(value)))));
    this.tip.hidden = false;
    const room = this.tip.offsetWidth;
    this.tip.style.left = `${x + 12 + room > this.width ? Math.max(0, x - room - 12) : x + 12}px`;
    return undefined;
  }

  press(event) {
    const step = {ArrowLeft: -1, ArrowRight: 1}[event.key];
    if (!step || !this.times.length) return;
    event.preventDefault();
    const i = this.at ? this.times.indexOf(this.at) + step : this.times.length - 1;
    this.mark(this.times[Math.max(0, Math.min(this.times.length - 1, i))]);
  }
}

// A small curve without axes, for a row of a table that has the figures.
export function spark(values, colour = 'c0') {
  values = values.filter(value => value !== null);
  const most = Math.max(...values, 0) || 1;
  const step = 96 / Math.max(1, values.length - 1);
  const path = values.map((v, i) => `${i ? 'L' : 'M'}${(i * step).toFixed(1)} ${(18.5 - v / most * 17).toFixed(1)}`).join('');
  return svg('svg', {class: 'spark', viewBox: '0 0 96 20', 'aria-hidden': 'true'}, path ? svg('path', {class: `line ${colour}`, d: path}) : null);
}

// How full something is, with where it becomes too full.
export function meter(percent, label, {warn = 80, bad = 95, marked = true} = {}) {
  const kind = !marked ? '' : percent >= bad ? 'bad' : percent >= warn ? 'warn' : '';
  return el('div', {class: `meter ${kind}`, role: 'meter', 'aria-valuemin': 0, 'aria-valuemax': 100, 'aria-valuenow': percent, 'aria-label': label},
    el('i', {style: {width: `${Math.min(100, percent)}%`}}),
    marked ? [warn, bad].map(at => el('b', {style: {left: `${at}%`}})) : null);
}
