// The findings of check: what cannot be true.
import {el, fill} from '../lib/dom.js';
import {findings} from '../lib/findings.js';
import {clock} from '../lib/format.js';

export default async function draw(view) {
  view.title('Findings', 'The engine held against itself: references that lead astray, counts that are too large, entries that do not agree');
  const words = el('input', {type: 'search', placeholder: 'Table, field or problem', 'aria-label': 'Findings with this in their table, field or problem', class: 'grow'});
  const severity = el('select', {'aria-label': 'Severity'}, ['all', 'error', 'warning'].map(one => el('option', {}, one)));
  const place = el('div', {class: 'wide'});
  let answer = {findings: [], count: 0};
  const show = () => {
    const wanted = words.value.toLowerCase();
    const fits = answer.findings.filter(one => (severity.value === 'all' || one.severity === severity.value) && JSON.stringify(one).toLowerCase().includes(wanted));
    const most = 1000;
    fill(place, answer.count
      ? findings(fits.slice(0, most), `${fits.length} of ${answer.count} findings, checked at ${clock(Date.now())}${fits.length > most ? `; the first ${most} are shown` : ''}`)
      : el('p', {class: 'empty'}, `Nothing is wrong, checked at ${clock(Date.now())}.`));
  };
  const load = async () => {
    answer = await view.ask('check', {}, {shown: true});
    view.findings(answer.count);
    show();
  };
  words.addEventListener('input', show);
  severity.addEventListener('input', show);
  const again = el('button', {type: 'button', onclick: () => load().catch(failure => view.failed(failure))}, 'Check again');
  view.fill(el('p', {class: 'empty'}, 'Checking …'));
  await load();
  view.fill(el('div', {class: 'row tools'}, words, severity, again), el('div', {class: 'card'}, place));
}
