// All tables, the fullest first unless asked otherwise.
import {meter} from '../lib/chart.js';
import {el, fill, table} from '../lib/dom.js';
import {number, percent} from '../lib/format.js';
import {link, rewrite} from '../lib/route.js';

export default async function draw(view) {
  view.title('Tables', 'What the engine holds, and how full it is');
  let rows = [];
  const words = el('input', {type: 'search', placeholder: 'Name or meaning', 'aria-label': 'Tables whose name or meaning has these words', value: view.params.get('words') ?? '', class: 'grow'});
  const empty = el('input', {type: 'checkbox', checked: view.params.get('empty') === 'yes'});
  const order = el('select', {'aria-label': 'Order', value: view.params.get('order') ?? 'full'},
    [['full', 'Fullest first'], ['entries', 'Most entries first'], ['name', 'By name']].map(([value, text]) => el('option', {value}, text)));
  const place = el('div', {class: 'wide'});
  const single = row => row.capacity === 1;
  const orders = {
    full: (a, b) => single(a) - single(b) || b.share - a.share || a.name.localeCompare(b.name),
    entries: (a, b) => b.entries - a.entries || a.name.localeCompare(b.name),
    name: (a, b) => a.name.localeCompare(b.name),
  };
  const show = () => {
    const wanted = words.value.toLowerCase().split(/\s+/).filter(Boolean);
    const fits = rows.filter(row => (empty.checked || row.entries || wanted.length) && wanted.every(word => `${row.name} ${row.about}`.toLowerCase().includes(word)));
    fits.sort(orders[order.value]);
    const hidden = rows.length - fits.length;
    fill(place, table({
      caption: `${fits.length} of ${rows.length} tables${hidden && !empty.checked && !wanted.length ? '; empty ones are left out' : ''}`,
      head: ['Table', 'Holds', {body: 'Entries', class: 'num'}, {body: 'Room for', class: 'num'}, {body: 'Full', class: 'num'}, ''],
      rows: fits.map(row => [
        {body: row.readable === false ? el('span', {class: 'mono', title: 'nothing is known of its fields'}, row.name) : el('a', {href: link(`table/${row.name}`), class: 'mono'}, row.name), class: 'name'}, {body: row.about, class: 'quiet meaning'},
        {body: number(row.entries), class: 'num'}, {body: number(row.capacity), class: 'num of'},
        {body: single(row) ? '–' : percent(100 * row.share), class: 'num'}, {body: meter(100 * row.share, `${row.name} full`, {marked: !single(row)}), class: 'bar-cell'}]),
    }));
    rewrite('tables', {words: words.value, empty: empty.checked ? 'yes' : '', order: order.value === 'full' ? '' : order.value});
  };
  for (const control of [words, empty, order]) control.addEventListener('input', show);
  const load = async () => {
    rows = (await view.ask('tables', {}, {shown: true})).tables;
    show();
  };
  await load();
  view.fill(el('div', {class: 'row middle tools'}, words, order, el('label', {class: 'row middle'}, empty, 'empty ones as well')), el('div', {class: 'card'}, place));
  view.every(5, load);
}
