// Statements, read only. What was asked stands in the address.
import {el, fill, say, shown} from '../lib/dom.js';
import {number} from '../lib/format.js';
import {List, widths} from '../lib/list.js';
import {Whole} from '../lib/pages.js';
import {rewrite} from '../lib/route.js';
import {notice} from '../lib/view.js';

const examples = [
  ['How full tables are', 'SELECT name, entries, capacity, percent FROM usage WHERE capacity > 1 ORDER BY percent DESC LIMIT 20'],
  ['Most discards', "SELECT name, sum(value) AS packets FROM statistics WHERE class = 'discard' GROUP BY number HAVING packets > 0 ORDER BY packets DESC"],
  ['The route of an address', "SELECT destination, prefix, next_hop FROM fib WHERE match = '192.0.2.9'"],
  ['Stations and their neighbours', 'SELECT u.mac, u.ipv4_address, a.fwd_if_index, a.vlan_id FROM usf_user u JOIN arp a ON a.next_hop = u.ipv4_address'],
  ['Sessions by their sender', 'SELECT positive_source, count(*) AS sessions FROM session GROUP BY positive_source ORDER BY sessions DESC LIMIT 20'],
  ['The columns of a table', "SELECT name, type FROM pragma_table_info('fib')"],
];

const text = value => (value === null || value === undefined ? 'NULL' : shown(value));

export default async function draw(view) {
  view.title('SQL', 'One statement of SQLite over the engine’s tables, for reading. Each table of the list is one here; usage, statistics and findings are tables as well.');
  const statement = el('textarea', {rows: 4, spellcheck: 'false', 'aria-label': 'Statement', placeholder: examples[0][1], value: view.params.get('q') ?? ''});
  const limit = el('select', {'aria-label': 'Rows at most', value: view.params.get('limit') ?? '1000'}, ['100', '1000', '10000'].map(n => el('option', {value: n}, `${number(Number(n))} rows at most`)));
  const start = el('select', {'aria-label': 'Examples'}, el('option', {value: ''}, 'Examples …'), examples.map(([name], i) => el('option', {value: i}, name)));
  const place = el('div', {'aria-live': 'polite'});
  const go = el('button', {type: 'submit', class: 'main'}, 'Ask', el('span', {class: 'unseen'}, ' (Control and Enter)'));
  const form = el('form', {class: 'card'}, statement, el('div', {class: 'row middle', style: {'margin-top': '8px'}}, go, limit, start, el('span', {class: 'quiet'}, el('kbd', {}, 'Ctrl'), ' ', el('kbd', {}, 'Enter'))));
  let running = null;

  const run = async () => {
    const q = statement.value.trim();
    if (!q) return statement.focus();
    running?.abort();
    const mine = new AbortController();
    running = mine;
    rewrite('sql', {q, limit: limit.value === '1000' ? '' : limit.value});
    fill(place, el('p', {class: 'empty'}, 'Asking …'));
    const began = performance.now();
    try {
      const answer = await view.ask('sql', {q, limit: limit.value}, {shown: true});
      if (running !== mine) return undefined;
      const took = Math.round(performance.now() - began);
      const names = [...new Set(answer.rows.slice(0, 200).flatMap(row => Object.keys(row)))];
      const cut = answer.truncated ? '; there are more, raise the limit' : '';
      if (!names.length) fill(place, el('p', {class: 'empty'}, `No rows, after ${took} ms.`));
      else show(names, answer.rows, length => `${number(length)} ${length === 1 ? 'row' : 'rows'} in ${took} ms${cut}`);
      say(`${answer.rows.length} rows`);
    } catch (failure) {
      if (failure.name !== 'AbortError') fill(place, notice('bad', failure.title ?? 'It failed', failure.detail ?? failure.message));
    }
    return undefined;
  };

  const show = (names, rows, told) => {
    const columns = names.map(name => ({name, sort: false, numeric: rows.slice(0, 50).every(row => row[name] === null || typeof row[name] === 'number'), draw: row => (row[name] === null ? el('span', {class: 'quiet'}, 'NULL') : text(row[name]))}));
    widths(columns, rows, (row, column) => text(row[column.name]));
    const list = new List({columns, caption: 'Rows of the answer', told, signal: view.signal});
    list.node.style.setProperty('--list-height', 'max(260px, calc(100vh - 400px))');
    fill(place, list.node, list.status);
    list.use(new Whole(rows));
  };

  form.addEventListener('submit', event => { event.preventDefault(); void run(); });
  statement.addEventListener('keydown', event => {
    if (event.key !== 'Enter' || !(event.ctrlKey || event.metaKey)) return;
    event.preventDefault();
    void run();
  });
  start.addEventListener('change', () => {
    if (start.value !== '') statement.value = examples[start.value][1];
    start.value = '';
    void run();
  });
  place.style.marginTop = '12px';
  view.fill(form, place);
  if (statement.value) await run();
  else statement.focus({preventScroll: true});
}
