// The engine's counters, with what each gains a second.
import {el, fill, shown, table} from '../lib/dom.js';
import {number, rate} from '../lib/format.js';
import {rewrite} from '../lib/route.js';

export default async function draw(view) {
  view.title('Counters', 'What the engine has counted, by class, the sum of all cores and each core alone');
  const pattern = el('input', {type: 'search', placeholder: 'Name, * for any characters', 'aria-label': 'Counters whose name fits', value: view.params.get('pattern') ?? '', class: 'grow', spellcheck: 'false'});
  const kind = el('select', {'aria-label': 'Class'}, el('option', {value: ''}, 'all classes'));
  const zeros = el('input', {type: 'checkbox', checked: view.params.get('zeros') === 'yes'});
  const cores = el('input', {type: 'checkbox', checked: view.params.get('cores') === 'yes'});
  const place = el('div', {class: 'wide'});
  let before = null;
  let answer = null;
  let rates = new Map();

  const show = () => {
    const fits = answer.statistics.filter(one => (zeros.checked || one.sum) && (!kind.value || one.class === kind.value));
    fill(place, table({
      caption: `${fits.length} of ${answer.count} counters${zeros.checked ? '' : '; those that are 0 are left out'}`,
      head: [{body: 'No.', class: 'num'}, 'Class', 'Name', {body: 'Sum', class: 'num'}, {body: 'a second', class: 'num'}, ...(cores.checked ? Array.from({length: answer.cores}, (_, i) => ({body: `core ${i}`, class: 'num'})) : [])],
      rows: fits.map(one => [
        {body: one.number, class: 'num'}, {body: el('span', {class: `badge ${one.class === 'discard' ? 'warn' : ''}`}, one.class)}, {body: one.name === null ? '–' : shown(one.name)},
        {body: number(one.sum), class: 'num'}, {body: rates.get(one.number) ? rate(rates.get(one.number)) : '', class: 'num'},
        ...(cores.checked ? one.cores.map(n => ({body: number(n), class: 'num'})) : [])]),
    }));
    rewrite('statistics', {pattern: pattern.value, class: kind.value, zeros: zeros.checked ? 'yes' : '', cores: cores.checked ? 'yes' : ''});
  };
  const load = async () => {
    const now = Date.now();
    answer = await view.ask('statistics', {pattern: pattern.value && !pattern.value.includes('*') ? `*${pattern.value}*` : pattern.value}, {shown: true});
    const sums = new Map(answer.statistics.map(one => [one.number, one.sum]));
    // A counter that has fallen was cleared, and has no rate until the next time.
    rates = new Map(before ? [...sums].map(([n, sum]) => [n, Math.max(0, (sum - (before.sums.get(n) ?? sum)) / ((now - before.now) / 1000))]) : []);
    before = {sums, now};
    show();
  };
  const again = () => load().catch(failure => { if (failure.name !== 'AbortError') fill(place, el('p', {class: 'empty'}, failure.message)); });
  await load();
  fill(kind, el('option', {value: ''}, 'all classes'), [...new Set(answer.statistics.map(one => one.class))].map(one => el('option', {}, one)));
  kind.value = view.params.get('class') ?? '';
  for (const control of [kind, zeros, cores]) control.addEventListener('input', show);
  let soon = 0;
  pattern.addEventListener('input', () => { clearTimeout(soon); soon = setTimeout(() => { before = null; void again(); }, 250); });
  show();
  view.fill(el('div', {class: 'row middle tools'}, pattern, kind, el('label', {class: 'row middle'}, zeros, 'zeros as well'), el('label', {class: 'row middle'}, cores, 'each core')), el('div', {class: 'card'}, place));
  view.every(2, load);
}
