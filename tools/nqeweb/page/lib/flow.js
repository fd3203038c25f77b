// The scheduler's task graph: which task may follow which, and where the cycles go.
import {el, svg} from './dom.js';
import {number, percent, short} from './format.js';
import {layered} from './layers.js';

const kWide = 192;
const kHigh = 46;
const kDown = 74;
const kEdge = 8;
const kLane = 20;

// tasks: [{id, name, runs, cycles, average}], where cycles is the sum; edges: [[from, to]] by their ids.
export function flow(tasks, links, caption) {
  const known = new Map(tasks.map(task => [task.id, task]));
  const edges = links.filter(([from, to]) => known.has(from) && known.has(to));
  const {boxes, layers, width: wide} = layered([...known.keys()], edges, kWide);
  const all = tasks.reduce((sum, task) => sum + task.cycles, 0) || 1;
  const most = Math.max(...tasks.map(task => task.cycles), 1);
  const left = box => box.x + kEdge;
  const top = box => box.layer * kDown + kEdge;
  const heat = id => (known.get(id).cycles / most).toFixed(3);

  // To the next layer straight down; farther, or back, by a lane at the right, which all that lead to one task share.
  const lanes = [];
  const path = (from, to) => {
    const [a, b] = [boxes.get(from), boxes.get(to)];
    if (b.layer === a.layer + 1) {
      const [x, y, u, v] = [left(a) + kWide / 2, top(a) + kHigh, left(b) + kWide / 2, top(b)];
      return `M${x} ${y}C${x} ${(y + v) / 2} ${u} ${(y + v) / 2} ${u} ${v}`;
    }
    if (!lanes.includes(to)) lanes.push(to);
    const lane = wide + kEdge + kLane * (1 + lanes.indexOf(to));
    const [y, v] = [top(a) + kHigh / 2, top(b) + kHigh / 2];
    const turn = v > y ? 9 : -9;
    return `M${left(a) + kWide} ${y}H${lane - 9}Q${lane} ${y} ${lane} ${y + turn}V${v - turn}Q${lane} ${v} ${lane - 9} ${v}H${left(b) + kWide}`;
  };
  const lines = edges.map(([from, to]) =>
    svg('path', {class: 'edge', d: path(from, to), 'stroke-width': (1 + 6 * known.get(to).cycles / all).toFixed(2), style: {'--heat': heat(to)}},
      svg('title', {}, `${known.get(from).name} → ${known.get(to).name}`)));
  const nodes = tasks.map(task => {
    const box = boxes.get(task.id);
    const share = 100 * task.cycles / all;
    const about = `${task.name}, task ${task.id}: ${number(task.runs)} runs, ${short(task.average)} cycles each, ${percent(share)} of all cycles`;
    return svg('g', {transform: `translate(${left(box).toFixed(1)} ${top(box)})`, class: task.runs ? '' : 'idle', style: {'--heat': heat(task.id)}, tabindex: 0, role: 'img', 'aria-label': about},
      svg('title', {}, about),
      svg('rect', {class: 'box', width: kWide, height: kHigh, rx: 6}),
      svg('rect', {class: 'share', x: 1, y: kHigh - 5, width: Math.max(task.cycles ? 2 : 0, (kWide - 2) * task.cycles / most).toFixed(1), height: 4, rx: 2}),
      svg('text', {x: 10, y: 18}, `${task.id} ${task.name.replace(/^TASK_(ID_)?/, '')}`),
      svg('text', {x: 10, y: 35, class: 'small'}, task.runs ? `${short(task.runs)} runs, ${short(task.average)} cycles` : 'did not run'),
      svg('text', {x: kWide - 10, y: 35, class: 'small', 'text-anchor': 'end'}, task.runs ? percent(share) : ''));
  });
  const width = wide + 2 * kEdge + kLane * lanes.length;
  const height = layers * kDown - (kDown - kHigh) + 2 * kEdge;
  return el('div', {class: 'flow', tabindex: 0, role: 'group', 'aria-label': caption}, svg('svg', {viewBox: `0 0 ${width} ${height}`, width, style: {'min-width': `${Math.min(width, 560)}px`}}, lines, nodes));
}
