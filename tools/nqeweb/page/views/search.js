// One box for two questions: where a value stands, and where an address leads.
import {by, el, shown, table} from '../lib/dom.js';
import {keyWords, number, plain, recordLink} from '../lib/format.js';
import {link} from '../lib/route.js';
import {notice} from '../lib/view.js';

const isAddress = text => /^(\d{1,3}(\.\d{1,3}){3}|[0-9a-f]*:[0-9a-f:.]*:?[0-9a-f:.]*|([0-9a-f]{1,2}[:-]){5}[0-9a-f]{1,2}|([0-9a-f]{4}[.-]){2}[0-9a-f]{4})$/i.test(text);

// A step says the key, and those fields that it looked by; the record itself is one click away.
function step(one, keys) {
  const looked = Object.entries(one.looked_for ?? {}).map(([k, v]) => `${k}=${shown(plain(v))}`).join(' ');
  const key = one.found && keys.get(one.table) ? Object.fromEntries(keys.get(one.table).map(path => [path, one.found[path]])) : null;
  return el('li', {style: {'padding-left': `${one.depth * 22}px`}},
    el('span', {class: 'step'}, one.step), ' ', el('a', {class: 'mono', href: link(`table/${one.table}`)}, one.table), ' ',
    el('span', {class: 'quiet mono'}, looked), ' → ',
    key ? el('a', {class: 'mono', href: recordLink(one.table, key)}, keyWords(key).map(shown).join(' ')) : el('span', {class: 'quiet'}, one.found ? 'found' : 'nothing'),
    one.note ? el('div', {class: /stale|missing|leads to|not there|nowhere/.test(one.note) ? 'bad' : 'warn'}, shown(one.note)) : null);
}

async function explain(view, value) {
  const answer = await view.ask('explain', {address: value}, {shown: true});
  const keys = new Map();
  await Promise.all([...new Set(answer.steps.filter(one => one.found).map(one => one.table))].map(async name => {
    const {fields} = await view.ask(`tables/${name}/fields`);
    keys.set(name, fields.filter(field => field.in.split(', ').includes('key')).map(field => field.path));
  }));
  return [el('header', {}, el('h2', {}, 'Where it leads'), el('span', {class: 'quiet'}, `${answer.count} steps`)),
    el('ol', {class: 'steps'}, answer.steps.map(one => step(one, keys)))];
}

async function find(view, value, first) {
  const answer = await view.ask('find', {value}, {shown: first});
  return [el('header', {}, el('h2', {}, 'Where it stands'), el('span', {class: 'quiet'}, `${answer.count ?? answer.matches.length} places, looked for as ${answer.kind}${answer.truncated ? '; more follow' : ''}`)),
    answer.matches.length ? el('div', {class: 'wide'}, table({
      caption: 'Places', hidden: true, head: ['Entry', 'Field', 'Value'],
      rows: answer.matches.map(one => [
        {body: one.table ? el('a', {href: recordLink(one.table, one.key)}, `${one.table} ${keyWords(one.key).map(shown).join(' ')}`) : el('a', {href: link(`region/${one.region}`)}, one.region), class: 'value'},
        {body: one.field, class: 'value quiet'}, {body: plain(one.value), class: 'value'}])}))
      : el('p', {class: 'empty'}, 'It stands nowhere.')];
}

const counted = (n, what) => `${number(n)} ${what}${n === 1 ? '' : 's'}`;

// Tables and counters that are called so: who types "arp miss" means one of them.
async function called(view, value) {
  const words = value.toLowerCase().split(/[\s*]+/).filter(Boolean);
  const [{tables}, {statistics}] = await Promise.all([view.ask('tables'), view.ask('statistics', {pattern: value.includes('*') ? value : `*${value}*`})]);
  const fits = tables.filter(one => one.readable !== false && words.length && words.every(word => `${one.name} ${one.about}`.toLowerCase().includes(word)));
  const counters = statistics.filter(one => one.name).sort((a, b) => b.sum - a.sum);
  const shownCounters = counters.slice(0, 20);
  const all = link('statistics', {pattern: value, zeros: 'yes'});
  return [el('header', {}, el('h2', {}, 'What is called so'), el('span', {class: 'quiet'}, `${counted(fits.length, 'table')}, ${counted(counters.length, 'counter')}`)),
    fits.length ? table({caption: 'Tables', head: ['Table', 'Holds', {body: 'Entries', class: 'num'}],
      rows: fits.map(one => [{body: el('a', {class: 'mono', href: link(`table/${one.name}`)}, one.name), class: 'name'}, {body: one.about, class: 'quiet meaning'}, {body: number(one.entries), class: 'num'}])}) : null,
    counters.length ? table({caption: counters.length > shownCounters.length ? 'Counters, the greatest' : 'Counters', head: ['Counter', 'Class', {body: 'Sum', class: 'num'}],
      rows: shownCounters.map(one => [{body: el('a', {href: all}, one.name)}, {body: one.class, class: 'quiet'}, {body: number(one.sum), class: 'num'}])}) : null,
    fits.length || counters.length ? null : el('p', {class: 'empty'}, 'No table and no counter.')];
}

export default async function draw(view) {
  const value = view.params.get('q') ?? '';
  by('query').value = value;
  view.title(value ? `“${shown(value)}”` : 'Search', 'An address or prefix, a MAC address, an interface index, a table, a counter, or any text; * stands for any characters');
  if (!value) {
    view.fill(el('p', {class: 'empty'}, 'Type what you look for into the box above.'));
    by('query').focus();
    return;
  }
  const address = isAddress(value);
  const word = !address && /[a-z]/i.test(value);
  const left = el('section', {class: 'card half', 'aria-label': 'Where it leads'}, el('p', {class: 'empty'}, 'Looking …'));
  const right = el('section', {class: `card ${address || word ? 'half' : ''}`, 'aria-label': 'Where it stands'}, el('p', {class: 'empty'}, 'Looking …'));
  const names = el('section', {class: 'card half', 'aria-label': 'What is called so'}, el('p', {class: 'empty'}, 'Looking …'));
  view.fill(el('div', {class: 'cards'}, address ? left : null, right, word ? names : null));
  const put = (place, answer) => answer.then(parts => { if (!view.over) place.replaceChildren(...parts.filter(Boolean)); },
    failure => { if (failure.name !== 'AbortError' && !view.over) place.replaceChildren(notice('bad', failure.title ?? 'It failed', failure.detail ?? failure.message)); });
  await Promise.all([address ? put(left, explain(view, value)) : null, word ? put(names, called(view, value)) : null, put(right, find(view, value, !address))]);
}
