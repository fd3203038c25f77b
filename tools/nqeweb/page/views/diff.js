// Two engines or saved copies, held against each other by the keys of their entries.
import {el, fill, shown, table} from '../lib/dom.js';
import {keyWords, number, plain, recordLink} from '../lib/format.js';
import {go, link} from '../lib/route.js';

const signs = {added: '+', removed: '−', changed: '~'};
const kMost = 500;

export default async function draw(view) {
  view.title('Compare', 'What two engines or saved copies have differently. Counters and times change by themselves and are left out unless asked for.');
  const engines = view.engines();
  const name = (which, otherwise) => view.params.get(which) ?? otherwise?.name ?? '';
  const option = one => el('option', {value: one.name}, one.state === 'up' ? `${one.name} (running)` : one.name);
  const a = el('select', {'aria-label': 'From', value: name('a', engines[0])}, engines.map(option));
  const b = el('select', {'aria-label': 'To', value: name('b', engines[1] ?? engines[0])}, engines.map(option));
  const counters = el('input', {type: 'checkbox', checked: view.params.get('counters') === 'true'});
  const form = el('form', {class: 'row middle tools'}, el('label', {class: 'row middle'}, 'From', a), el('label', {class: 'row middle'}, 'to', b),
    el('label', {class: 'row middle'}, counters, 'counters and times as well'), el('button', {type: 'submit', class: 'main'}, 'Compare'),
    el('button', {type: 'button', 'aria-label': 'Exchange the two', onclick: () => { [a.value, b.value] = [b.value, a.value]; }}, '⇄'));
  form.addEventListener('submit', event => {
    event.preventDefault();
    go('diff', {a: a.value, b: b.value, counters: counters.checked ? 'true' : ''});
  });
  const place = el('div');
  view.fill(form, place);
  if (engines.length < 2) fill(place, el('p', {class: 'empty'}, 'This console reads one engine alone. Start nqeweb with --snapshot FILE as well to have something to compare it with.'));
  if (!view.params.get('a') || !view.params.get('b')) return;
  fill(place, el('p', {class: 'empty'}, 'Comparing …'));
  const answer = await view.ask('diff', {engine: '', a: view.params.get('a'), b: view.params.get('b'), counters: counters.checked ? 'true' : ''}, {shown: true});
  const tables = new Map();
  for (const one of answer.diff) {
    const where = one.table ?? one.region;
    if (!tables.has(where)) tables.set(where, []);
    tables.get(where).push(one);
  }
  const many = kind => answer.diff.filter(one => one.change === kind).length;
  if (!answer.diff.length) {
    fill(place, el('p', {class: 'empty'}, 'There is no difference.'));
    return;
  }
  const change = ([path, {from, to}]) => el('div', {}, el('span', {class: 'quiet'}, `${path} `), el('span', {class: 'removed'}, plain(from)), ' → ', el('span', {class: 'added'}, plain(to)));
  const entry = one => {
    if (!one.table) return one.region;
    const words = keyWords(one.key).map(shown).join(' ');
    return el('a', {href: recordLink(one.table, one.key).replace(/engine=[^&]*&?/, '').replace('?', `?engine=${encodeURIComponent(one.change === 'removed' ? a.value : b.value)}&`)}, words);
  };
  fill(place,
    el('p', {class: 'below-tools'}, `${number(answer.count)} differences in ${tables.size} tables and regions: `, el('span', {class: 'added'}, `${many('added')} added`), ', ', el('span', {class: 'removed'}, `${many('removed')} removed`), ', ', el('span', {class: 'changed'}, `${many('changed')} changed`)),
    [...tables].map(([where, rows]) => el('details', {class: 'card', open: tables.size <= 12 || rows.length <= 3, style: {'margin-bottom': '8px'}}, el('summary', {}, el('b', {class: 'mono'}, where), ` ${number(rows.length)}`),
      el('div', {class: 'wide'}, table({caption: rows.length > kMost ? `the first ${kMost} of ${rows.length}` : where, hidden: rows.length <= kMost, head: ['', 'Entry', 'Fields'],
        rows: rows.slice(0, kMost).map(one => [{body: el('span', {class: `sign ${one.change}`, title: one.change}, signs[one.change], el('span', {class: 'unseen'}, ` ${one.change}`))}, {body: entry(one), class: 'value'}, {body: Object.entries(one.fields ?? {}).map(change), class: 'value'}])})))),
    el('p', {class: 'quiet'}, el('a', {href: link('engines')}, 'All engines')));
}
