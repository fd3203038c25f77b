// Where an engine's time goes: the scheduler's tasks as a graph, and the measurement points.
import {change} from '../lib/api.js';
import {meter} from '../lib/chart.js';
import {el, fill, table} from '../lib/dom.js';
import {flow} from '../lib/flow.js';
import {number, percent, short} from '../lib/format.js';
import {pointsOf, tasksOf} from '../lib/measured.js';
import {rewrite} from '../lib/route.js';
import {copy, notice} from '../lib/view.js';

const modes = {
  1: 'TLB, caches, memory', 2: 'instructions, branches', 3: 'cycles alone', 4: 'stalls', 5: 'stalls of address translation', 6: 'level-1 data cache',
  7: 'level-2 cache', 8: 'level-3 cache', 9: 'level-1 TLBs', 10: 'level-2 TLB', 11: 'memory', 12: 'bus',
};

// Where the packet path has its points.
const stages = ['receive', 'classify', 'limit', 'acl', 'lookup', 'forward', 'transmit', 'discard'];
const traced = {time: 'cycles', icache: 'instruction cache', dcache: 'data cache', task_path: 'paths', snapshot: 'the last batch'};

// What all cores have counted, or one, by its number.
function merged(list, core, counts) {
  const all = new Map();
  for (const one of list) {
    if (core !== '' && one.core !== Number(core)) continue;
    const sum = all.get(one.id);
    if (!sum) {
      all.set(one.id, {...one, events: [...(one.events ?? [])]});
      continue;
    }
    for (const what of counts) sum[what] += one[what];
    sum.most = Math.max(sum.most, one.most);
    one.events?.forEach((count, i) => { sum.events[i] += count; });
  }
  return [...all.values()].sort((a, b) => a.id - b.id);
}

const average = task => (task.runs ? task.cycles / task.runs : 0);

function bars(points, names) {
  const most = what => Math.max(1, ...points.map(what));
  const each = point => (point.packets ? point.cycles / point.packets : 0);
  // What was counted last keeps standing when counting stops; which column the cycles are is known no longer.
  const known = points.every(point => point.known);
  const cell = (value, whole, label) => ({body: el('div', {class: 'barred'}, el('span', {}, short(value)), meter(100 * value / whole, label, {marked: false})), class: 'bar-cell'});
  const hits = most(point => point.hits);
  const cycles = most(point => point.cycles);
  const packet = most(each);
  const sum = points.reduce((all, point) => all + point.cycles, 0) || 1;
  const events = names.map((name, i) => [name, i]).filter(([name]) => !/cycles/i.test(name));
  return table({
    caption: known ? 'What was counted at the measurement points' : 'What was counted until it was stopped; nothing tells any more which of it were cycles',
    head: ['Point', 'Hits', ...(known ? ['Cycles', 'Cycles a packet', {body: 'Share', class: 'num'}] : []), ...events.map(([name]) => ({body: name, class: 'num', title: `${name} a packet`}))],
    rows: points.map(point => [{body: [el('b', {}, point.id), ` ${stages[point.id] ?? ''}`], class: 'name'}, cell(point.hits, hits, `hits of point ${point.id}`), ...(known ? [cell(point.cycles, cycles, `cycles of point ${point.id}`), cell(each(point), packet, `cycles a packet of point ${point.id}`), {body: percent(100 * point.cycles / sum), class: 'num'}] : []),
      ...events.map(([, i]) => ({body: point.packets ? ((point.events[i] ?? 0) / point.packets).toFixed(1) : '–', class: 'num'}))]),
  });
}

export default async function draw(view) {
  view.title('Tasks and points', 'The scheduler’s tasks and the fast statistics, as far as they are measured now');
  const core = el('select', {'aria-label': 'Core'}, el('option', {value: ''}, 'All cores'));
  const states = el('span', {class: 'row middle'});
  const graph = el('div');
  const numbers = el('div', {class: 'wide'});
  const points = el('div', {class: 'wide'});
  const problem = el('div');
  let was = '';

  const act = async body => {
    try {
      await change('measurement', body);
      fill(problem);
      await load();
    } catch (failure) {
      fill(problem, notice('bad', failure.title, failure.detail));
    }
  };
  const hint = command => {
    const button = el('button', {type: 'button', onclick: () => copy(command, button)}, 'Copy');
    return el('div', {class: 'command'}, el('code', {}, command), button);
  };

  const load = async () => {
    const answer = await view.ask('measurement', {}, {shown: true});
    const tasks = tasksOf(answer);
    const measured = pointsOf(answer);
    const cores = [...new Set([...tasks.list, ...measured.list].map(one => one.core))].sort((a, b) => a - b);
    if (core.length !== cores.length + 1) {
      const kept = core.value || view.params.get('core') || '';
      fill(core, el('option', {value: ''}, 'All cores'), cores.map(n => el('option', {value: n}, `Core ${n}`)));
      core.value = kept;
    }
    rewrite('measure', {core: core.value});
    fill(states, el('span', {class: `badge ${tasks.traces ? 'good' : ''}`}, `tasks: ${tasks.traces ? traced[tasks.traces] : 'not traced'}`),
      el('span', {class: `badge ${measured.mode ? 'good' : ''}`}, `points: ${measured.mode ? `mode ${measured.mode}, ${modes[measured.mode] ?? ''}` : 'stopped'}`));
    const now = JSON.stringify([tasks, measured, core.value]);
    if (now === was) return;
    was = now;
    const follows = new Set(tasks.edges.flat());
    const ran = merged(tasks.list, core.value, ['runs', 'packets', 'cycles']).filter(task => task.runs || follows.has(task.id)).map(task => ({...task, average: average(task)}));
    // Who looks at a place of the graph stays there.
    const old = graph.querySelector('.flow');
    const at = old && [old.scrollLeft, old.scrollTop];
    fill(graph, ran.length ? flow(ran, tasks.edges, 'Task graph: a box is as red, its bar as long and the lines to it as thick as its share of the cycles')
      : el('div', {class: 'empty'}, el('p', {}, 'No task is traced. This starts it:'), hint('nqecli perf task set time')));
    if (at && graph.firstChild) [graph.firstChild.scrollLeft, graph.firstChild.scrollTop] = at;
    const whole = ran.reduce((all, task) => all + task.cycles, 0) || 1;
    fill(numbers, ran.length ? table({caption: 'The same in figures', head: ['Task', {body: 'Runs', class: 'num'}, {body: 'Cycles each', class: 'num'}, {body: 'at most', class: 'num'}, {body: 'Share', class: 'num'}],
      rows: [...ran].sort((a, b) => b.cycles - a.cycles).map(task => [{body: [el('b', {}, task.id), ` ${task.name.replace(/^TASK_(ID_)?/, '')}`], class: 'name'}, {body: number(task.runs), class: 'num'}, {body: number(Math.round(task.average)), class: 'num'}, {body: short(task.most), class: 'num quiet'}, {body: percent(100 * task.cycles / whole), class: 'num'}])}) : null);
    const shownPoints = merged(measured.list, core.value, ['hits', 'packets', 'cycles']);
    fill(points, shownPoints.length ? bars(shownPoints, measured.events) : el('div', {class: 'empty'}, el('p', {}, 'Nothing is counted at the measurement points. This starts it, with cycles alone:'), hint('nqecli pmc 3')));
  };
  core.addEventListener('input', () => load());
  await load();
  const mode = el('select', {'aria-label': 'Mode of the fast statistics', value: '3'}, Object.entries(modes).map(([n, name]) => el('option', {value: n}, `${n}: ${name}`)));
  const buttons = el('details', {}, el('summary', {}, 'Start and stop'), el('div', {class: 'row middle'},
    el('button', {type: 'button', onclick: () => act({tasks: 'time'})}, 'Trace tasks'), el('button', {type: 'button', onclick: () => act({tasks: 'clear'})}, 'Clear'), el('button', {type: 'button', onclick: () => act({tasks: 'disable'})}, 'Trace no tasks'),
    mode, el('button', {type: 'button', onclick: () => act({points: Number(mode.value)})}, 'Count at points'), el('button', {type: 'button', onclick: () => act({points: 'stop'})}, 'Stop counting'),
    view.changes() ? null : el('span', {class: 'quiet'}, 'This console only shows: nqeweb was started without --allow-changes.')));
  if (!view.changes()) buttons.querySelectorAll('button, select').forEach(control => { control.disabled = true; });
  view.fill(el('div', {class: 'row middle tools'}, core, states), problem, buttons, el('div', {class: 'cards'},
    el('section', {class: 'card', 'aria-label': 'Measurement points'}, el('header', {}, el('h2', {}, 'Measurement points')), points),
    el('section', {class: 'card seven', 'aria-label': 'Task graph'}, el('header', {}, el('h2', {}, 'Task graph'), el('span', {class: 'quiet'}, 'as red and as wide as the share of cycles')), graph),
    el('section', {class: 'card five', 'aria-label': 'Tasks'}, el('header', {}, el('h2', {}, 'Tasks')), numbers)));
  view.every(2, load);
}
