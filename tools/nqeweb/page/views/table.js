// Any table as a list: filters, order, the fields that are wanted, and as many records as there are.
import {el, fill, shown} from '../lib/dom.js';
import {at, keyWords, node, number, plain, protocol} from '../lib/format.js';
import {dialog} from '../lib/keys.js';
import {List, widths} from '../lib/list.js';
import {Pages} from '../lib/pages.js';
import {link, go} from '../lib/route.js';
import {notice} from '../lib/view.js';

const resetOf = {session: 'session', server_map: 'server-map'};
const operators = ['=', '!=', '<', '<=', '>', '>='];
const kRoom = 14;  // columns that are shown when nobody says which

// What says most of a session, in one line each. IPv6 sessions have their keys in a part of their own.
const sessionParts = ['positive.source', 'positive.source_port', 'positive.destination', 'positive.destination_port', 'positive.protocol', 'positive6'];
const sessionColumns = [
  {name: 'flow', title: 'from', sort: false, text: r => end(r, 'source')},
  {name: 'to', title: 'to', sort: false, text: r => end(r, 'destination')},
  {name: 'positive.protocol', title: 'protocol', text: r => { const p = at(r, 'positive.protocol') ?? at(r, 'positive6.protocol'); return p === undefined ? '' : protocol(p); }},
  {name: 'nat', title: 'translated', sort: false, about: 'the addresses with which the initiator\'s packets leave', text: r => translated(r)},
];
const sessionFields = ['index', 'ingress', 'egress', 'state', 'aging_time', 'refreshed', 'created', 'service'];
const natFields = ['nat_source', 'nat_destination', 'new_source', 'new_source_port', 'new_destination', 'new_destination_port'];

const port = (address, n) => (address.includes(':') ? `[${address}]:${n}` : `${address}:${n}`);
function end(record, which) {
  const part = record.positive ?? record.positive6;
  return part ? port(part[which] ?? '', part[`${which}_port`] ?? 0) : '';
}
function translated(record) {
  return [record.nat_source && `from ${port(record.new_source, record.new_source_port)}`, record.nat_destination && `to ${port(record.new_destination, record.new_destination_port)}`]
    .filter(Boolean).join(' ');
}

// Fields that a column can show: not the structures themselves, whose parts have paths of their own.
const listable = fields => fields.filter(field => field.kind !== 'structure' && field.kind !== 'structures');
const isKey = field => field.in.split(', ').includes('key');
const numeric = field => /^[ui](8|16|32|64)/.test(field.kind) && field.width > 1 || /ago$/.test(field.kind);

function chosenFields(view, all) {
  const asked = view.params.get('fields')?.split(',').filter(Boolean);
  const known = asked?.map(path => all.find(field => field.path === path)).filter(Boolean);
  if (known?.length) return known;
  const whole = listable(all).filter(field => !field.path.includes('['));
  return [...whole.filter(isKey), ...whole.filter(field => !isKey(field))].slice(0, kRoom);
}

export default async function draw(view) {
  const sessions = view.path[0] === 'sessions';
  const name = sessions ? 'session' : view.path[1];
  const here = sessions ? 'sessions' : `table/${name}`;
  const filters = view.params.getAll('filter');
  const sort = view.params.get('sort') ?? '';
  view.title(sessions ? 'Sessions' : name);
  const described = await view.ask(`tables/${encodeURIComponent(name)}/fields`);
  const all = described.fields;
  view.title(sessions ? 'Sessions' : name, described.about);
  const keys = all.filter(isKey).map(field => field.path);
  const named = sessions && !view.params.get('fields');
  const fields = named ? sessionFields.map(path => all.find(field => field.path === path)).filter(Boolean) : chosenFields(view, all);
  const state = {filter: filters, sort, fields: view.params.get('fields') ?? ''};
  const to = change => go(here, {...state, ...change});

  const columns = fields.map(field => ({name: field.path, about: `${field.about}${field.unit ? ` (${field.unit})` : ''}`, numeric: numeric(field), field, text: record => plain(at(record, field.path), field)}));
  if (named) columns.splice(1, 0, ...sessionColumns);
  columns.forEach((column, i) => {
    const own = record => keyWords(Object.fromEntries(keys.map(path => [path, at(record, path)])));
    column.draw = record => {
      if (!i) return el('a', {href: link(`record/${name}`, {key: own(record)})}, column.text(record) || '–');
      return column.field ? node(at(record, column.field.path), column.field) : column.text(record);
    };
  });
  // A column of the whole record, where it leads elsewhere, follows its own link; the first one leads to the record.
  const asked = [...new Set([...keys, ...fields.map(field => field.path), ...(named ? [...sessionParts, ...natFields] : [])])];

  const problem = el('div');
  const list = new List({
    columns, sorted: sort, signal: view.signal, caption: `Entries of ${name}`,
    onSort: by => to({sort: by}),
    told: (length, known) => (known ? `${number(length)} ${length === 1 ? 'entry' : 'entries'}${filters.length ? ' that fit' : ''}`
      : filters.length ? `more than ${number(Math.max(0, length - 200))} entries that fit` : `about ${number(length)} entries`),
  });

  const tables = filters.length ? null : (await view.ask('tables')).tables.find(row => row.name === name);
  const questions = {filter: filters, sort};
  const source = () => {
    const pages = new Pages({
      expected: tables?.entries ?? 0,
      changed: () => { list.later(); },
      failed: failure => {
        if (failure.name !== 'AbortError' && !view.over) fill(problem, notice('bad', failure.title ?? 'The list failed', failure.detail ?? failure.message));
      },
      fetch: async (cursor, limit, only) => view.ask(`tables/${encodeURIComponent(name)}/records`,
        {...questions, limit, cursor, fields: only ? keys[0] ?? asked[0] : asked.join(',')}, {shown: !cursor && !only}),
    });
    return pages;
  };

  // The first page tells how wide the columns are.
  const pages = source();
  const first = await pages.fetchPage(null, 200, false);
  widths(columns, first.records, (record, column) => column.text(record));
  pages.keep(0, first.records);
  if (first.next) pages.anchor(first.records.length, first.next);
  else pages.total = first.records.length;
  list.drawHead();

  view.fill(bar({view, all, filters, fields, to, name, sessions, named}), problem, list.node, list.status);
  list.use(pages);
  view.key('f', 'add a filter', () => view.place.querySelector('[name=field]')?.focus());
  view.key('r', 'read the list anew', () => to({}));
}

function bar({all, filters, fields, to, name, sessions, named}) {
  const paths = listable(all);
  const field = el('input', {name: 'field', list: 'fields-of-table', placeholder: 'field', 'aria-label': 'Field', autocomplete: 'off', spellcheck: 'false'});
  const operator = el('select', {'aria-label': 'Comparison'}, operators.map(sign => el('option', {}, sign)));
  const value = el('input', {placeholder: 'value, prefix or pattern*', 'aria-label': 'Value', autocomplete: 'off', spellcheck: 'false', class: 'grow'});
  const form = el('form', {class: 'row filter'}, el('datalist', {id: 'fields-of-table'}, paths.map(one => el('option', {value: one.path.replace(/\[\d+-\d+\]/g, '')}, one.about))),
    field, operator, value, el('button', {type: 'submit'}, 'Filter'));
  form.addEventListener('submit', event => {
    event.preventDefault();
    if (field.value.trim()) to({filter: [...filters, `${field.value.trim()}${operator.value}${value.value.trim()}`]});
    else field.focus();
  });
  const choose = el('button', {type: 'button', 'aria-haspopup': 'dialog', onclick: () => pick(all, fields, named, to)}, named ? 'Fields' : `Fields (${fields.length})`);
  const anew = el('button', {type: 'button', title: 'Read the list anew', onclick: () => to({})}, 'Refresh');
  const chips = filters.map((text, i) => el('span', {class: 'chip'}, el('span', {}, shown(text)),
    el('button', {type: 'button', 'aria-label': `Remove the filter ${shown(text)}`, onclick: () => to({filter: filters.filter((_, j) => j !== i)})}, '✕')));
  return el('div', {class: 'tools', role: 'group', 'aria-label': 'Filters and fields'},
    el('div', {class: 'row'}, form, choose, anew, sessions ? el('a', {class: 'button', href: link(`table/${name}`)}, 'As the table') : null,
      resetOf[name] ? el('a', {class: 'button', href: link('reset', {what: resetOf[name]})}, 'End some …') : null),
    chips.length ? el('div', {class: 'row', role: 'list', 'aria-label': 'Filters in force'}, chips) : null);
}

function pick(all, fields, named, to) {
  const chosen = new Set(named ? [] : fields.map(field => field.path));
  const boxes = listable(all).map(field => {
    const box = el('input', {type: 'checkbox', checked: chosen.has(field.path)});
    box.addEventListener('change', () => (box.checked ? chosen.add(field.path) : chosen.delete(field.path)));
    return [field, el('label', {title: field.about}, box, field.path)];
  });
  const filter = el('input', {type: 'search', placeholder: 'Name or meaning', 'aria-label': 'Fields whose name or meaning has this', class: 'grow'});
  filter.addEventListener('input', () => {
    for (const [field, label] of boxes) label.hidden = !`${field.path} ${field.about}`.toLowerCase().includes(filter.value.toLowerCase());
  });
  const box = dialog('Fields', el('div', {class: 'row tools'}, filter), el('div', {class: 'choices'}, boxes.map(([, label]) => label)),
    el('div', {class: 'row'}, el('button', {type: 'button', class: 'main', onclick: () => { box.close(); to({fields: [...chosen].join(',')}); }}, 'Show these'),
      el('button', {type: 'button', onclick: () => { box.close(); to({fields: ''}); }}, 'As at first')));
}
