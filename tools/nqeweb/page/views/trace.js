// The packet trace: its conditions from a form, its lines as they come.
import {change} from '../lib/api.js';
import {el, fill, say, shown, table} from '../lib/dom.js';
import {clock, number} from '../lib/format.js';
import {copy, notice} from '../lib/view.js';
import {conditions, settings} from '../lib/trace_words.js';

const kLines = 2000;

export default async function draw(view) {
  view.title('Packet trace', 'Shows what becomes of packets that fit all conditions. Conditions that are left empty do not count.');
  const controls = new Map();
  const control = one => {
    const attributes = {name: one.word, id: `trace-${one.word}`, 'aria-describedby': `trace-${one.word}-about`};
    const input = one.flag ? el('input', {...attributes, type: 'checkbox'}) : el('input', {...attributes, placeholder: one.example ? `e.g. ${one.example}` : '', autocomplete: 'off', spellcheck: 'false', value: view.params.get(one.word) ?? ''});
    if (one.flag) input.checked = view.params.has(one.word);
    controls.set(one.word, {one, input});
    const words = el('span', {class: 'unseen', id: `trace-${one.word}-about`}, one.about);
    return one.flag ? el('label', {class: 'row middle', title: one.about}, input, one.name, words) : el('div', {class: 'field', title: one.about}, el('label', {for: `trace-${one.word}`}, one.name), input, words);
  };
  const chosen = () => [...controls.values()].filter(({one, input}) => (one.flag ? input.checked : input.value.trim())).map(({one, input}) => [one, one.flag ? null : input.value.trim()]);
  const quoted = text => (/^[\w.:*\/-]+$/.test(text) ? text : `'${text.replaceAll("'", "'\\''")}'`);
  const engine = view.engine();
  const tool = engine ? `nqecli --arena ${quoted(engine.path)} pkt_trace` : 'nqecli pkt_trace';
  const commands = () => [`${tool} clear`, ...chosen().map(([one, value]) => `${tool} set ${one.word}${value === null ? (one.value ? ` ${one.value}` : '') : ` ${quoted(value)}`}`), `${tool} enable`].join('\n');
  const script = el('pre', {tabindex: 0, 'aria-label': 'Commands that set the same'});
  const tell = () => { script.textContent = commands(); };

  const problem = el('div');
  const act = async (body, done) => {
    try {
      await change('trace', body);
      fill(problem);
      say(done);
      await state();
    } catch (failure) {
      fill(problem, notice(failure.status === 403 ? 'warn' : 'bad', failure.title, failure.detail));
    }
  };
  const groups = [['Packet', 'packet'], ['Addresses', 'address'], ['Ports and kinds', 'kind'], ['Fate', 'fate']];
  const form = el('form', {class: 'card two-thirds trace-form', 'aria-label': 'Conditions'},
    groups.map(([title, group]) => el('fieldset', {}, el('legend', {}, title), el('div', {class: 'fields'}, conditions.filter(one => one.group === group && !one.flag).map(control)),
      el('div', {class: 'row middle flags'}, conditions.filter(one => one.group === group && one.flag).map(control)))),
    el('fieldset', {}, el('legend', {}, 'How long'), el('div', {class: 'fields'}, settings.map(control))),
    el('div', {class: 'row middle'}, el('button', {type: 'submit', class: 'main'}, 'Start the trace'),
      el('button', {type: 'button', onclick: () => act({action: 'clear'}, 'The trace has stopped')}, 'Stop and clear')));
  form.addEventListener('input', tell);
  form.addEventListener('submit', event => {
    event.preventDefault();
    const set = Object.fromEntries(chosen().map(([one, value]) => [one.word, value === null ? one.value ?? true : value]));
    void act({action: 'set', ...set}, 'The trace has started');
  });

  const lines = el('pre', {class: 'lines', tabindex: 0, role: 'log', 'aria-label': 'Lines of the trace', 'aria-live': 'off'});
  const count = el('span', {class: 'quiet'}, 'none yet');
  const kept = [];
  let stopped = false;
  let asked = false;
  const hold = el('button', {type: 'button', 'aria-pressed': 'false'}, 'Hold');
  hold.addEventListener('click', () => {
    stopped = !stopped;
    hold.setAttribute('aria-pressed', String(stopped));
    if (!stopped) write();
  });
  const write = () => {
    asked = false;
    const below = lines.scrollHeight - lines.scrollTop - lines.clientHeight < 40;
    lines.textContent = kept.map(([time, text]) => `${clock(time)}  ${shown(text)}`).join('\n');
    if (below) lines.scrollTop = lines.scrollHeight;
    count.textContent = `${number(kept.length)} lines${kept.length >= kLines ? ', older ones are gone' : ''}`;
  };
  view.listens = true;
  view.on('trace', news => {
    kept.push([Date.now(), news.line]);
    kept.splice(0, kept.length - kLines);
    if (stopped || asked) return;
    asked = true;
    requestAnimationFrame(write);
  });

  const now = el('div', {class: 'wide'});
  const state = async () => {
    const {records: [one]} = await view.ask('regions/PKT_TRACE_CTX_PTR', {}, {shown: true});
    const set = Object.entries(one).filter(([name, value]) => value && !['0.0.0.0', '::', '00:00:00:00:00:00'].includes(value) && !/^(from_|to_)(driver|slow_path)$/.test(name));
    fill(now, el('dl', {class: 'facts'}, [['from the driver', one.from_driver], ['to the driver', one.to_driver], ['to the slow path', one.to_slow_path], ['from the slow path', one.from_slow_path]]
      .map(([name, value]) => el('div', {}, el('dt', {}, name), el('dd', {class: 'big'}, number(value))))),
    table({caption: one.trace_packets ? 'Packets are traced' : 'No packets are traced', head: ['What is set', ''], rows: set.map(([name, value]) => [{body: name, class: 'mono'}, {body: Array.isArray(value) ? value.map(shown).join(', ') : shown(value), class: 'value'}])}));
  };
  const copied = el('button', {type: 'button', onclick: () => copy(commands(), copied)}, 'Copy');
  tell();
  if (!view.changes()) {
    form.querySelectorAll('button').forEach(button => { button.disabled = true; });
    fill(problem, notice('info', 'This console only shows', 'nqeweb was started without --allow-changes. The form makes the commands for nqecli all the same.'));
  }
  view.fill(problem, el('div', {class: 'cards'}, form,
    el('div', {class: 'cards stack third'},
      el('section', {class: 'card', 'aria-label': 'The trace now'}, el('header', {}, el('h2', {}, 'Now')), now),
      el('section', {class: 'card', 'aria-label': 'As commands'}, el('header', {}, el('h2', {}, 'As commands'), copied), script)),
    el('section', {class: 'card', 'aria-label': 'Lines'}, el('header', {}, el('h2', {}, 'Lines'), el('span', {class: 'row middle'}, count, hold,
      el('button', {type: 'button', onclick: () => { kept.length = 0; write(); }}, 'Empty'))), lines)));
  await state();
  view.every(2, state);
}
