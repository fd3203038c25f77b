// One entry: its exact text beside its fields, with what they mean and where they lead.
import {el, fill, shown, table} from '../lib/dom.js';
import {node, plain, recordLink, reference, targetsOf} from '../lib/format.js';
import {link} from '../lib/route.js';
import {copy} from '../lib/view.js';

// The description of l3_services[2].type stands at l3_services[0-3].type.
function described(fields, path) {
  const exact = fields.get(path);
  if (exact) return exact;
  const any = path.replace(/\[\d+\]/g, '[]');
  return fields.get(any);
}

function describe(all) {
  const fields = new Map();
  for (const field of all) {
    fields.set(field.path, field);
    fields.set(field.path.replace(/\[\d+(-\d+)?\]/g, '[]'), field);
  }
  return fields;
}

// Where a session is ended, by the conditions that fit it.
function endOf(record) {
  const flow = record.positive ?? record.positive6 ?? {};
  return link('reset', {what: 'session', 'inside-source-ip': flow.source, 'inside-source-port': flow.source_port || '',
    'inside-destination-ip': flow.destination, 'inside-destination-port': flow.destination_port || '', protocol: flow.protocol || '', type: record.positive6 ? 'ipv6' : ''});
}

export default async function draw(view) {
  const name = view.path[1];
  const keys = view.params.getAll('key');
  const {fields: all, about} = await view.ask(`tables/${encodeURIComponent(name)}/fields`);
  const fields = describe(all);
  view.title(`${name} ${keys.map(shown).join(' ')}`, about);
  const zeros = el('input', {type: 'checkbox'});
  const words = el('input', {type: 'search', placeholder: 'Field, value or meaning', 'aria-label': 'Fields that have this in their name, value or meaning', class: 'grow'});
  const body = el('div', {class: 'wide'});
  const text = el('div');
  const leads = el('div');
  let answer = null;

  const rows = () => {
    const links = new Map((answer.references ?? []).map(one => [one.field, one]));
    const found = [];
    const walk = (value, path) => {
      const field = described(fields, path);
      const to = links.get(path);
      const own = targetsOf(field).length ? reference(value, targetsOf(field)) : null;
      if (own || value === null || typeof value !== 'object' || 'stale' in value) {
        const content = to && !own ? el('a', {href: recordLink(to.table, to.key), title: `to ${to.table}`}, plain(value, field)) : node(value, field);
        found.push({path, field, value, content});
        return;
      }
      for (const [inner, one] of Object.entries(value)) walk(one, Array.isArray(value) ? `${path}[${inner}]` : path ? `${path}.${inner}` : inner);
    };
    walk(answer.record, '');
    return found;
  };

  const show = () => {
    const wanted = words.value.toLowerCase();
    const everything = rows();
    const empty = ({value, field}) => !field?.in.includes('key') && (value === 0 || value === false || value === null || value === '' || value === '0.0.0.0' || value === '::' || value === '00:00:00:00:00:00');
    const fits = everything.filter(row => (zeros.checked || wanted || !empty(row)) && (!wanted || `${row.path} ${plain(row.value, row.field)} ${row.field?.about ?? ''}`.toLowerCase().includes(wanted)));
    fill(body, table({
      caption: `${fits.length} of ${everything.length} fields${!zeros.checked && !wanted && fits.length < everything.length ? '; those that are 0, no or empty are left out' : ''}`,
      head: ['Field', 'Value', 'Meaning', ''],
      rows: fits.map(({path, field, content, value}) => [
        {body: path, class: 'value', title: field ? `${field.kind}, ${field.in}, offset ${field.offset}` : undefined},
        {body: [content, field?.unit && value ? el('span', {class: 'quiet'}, ` ${field.unit}`) : null], class: 'value'},
        {body: field?.about ?? '', class: 'quiet meaning'},
        {body: typeof value === 'object' ? null : el('a', {href: link(`table/${name}`, {filter: `${path.replace(/\[\d+\]/g, '')}=${value === true ? 1 : value === false ? 0 : value}`}), title: 'All entries with this value', 'aria-label': `All entries of ${name} whose ${path} is ${plain(value, field)}`}, '≡'), class: 'num'},
      ]),
    }));
  };

  const load = async () => {
    answer = await view.ask(`tables/${encodeURIComponent(name)}/record`, {key: keys}, {shown: true});
    show();
    const button = el('button', {type: 'button', onclick: () => copy(answer.text, button)}, 'Copy');
    fill(text, answer.text
      ? [el('header', {}, el('h2', {}, 'Text'), el('span', {class: 'row middle'}, el('span', {class: 'quiet'}, answer.view ? `as nqecli show ${answer.view} writes it` : ''), button)),
        el('pre', {class: 'text', tabindex: 0, 'aria-label': 'Text of the record'}, shown(answer.text))]
      : [el('header', {}, el('h2', {}, 'Text')), el('p', {class: 'empty'}, 'The library has no text for this entry alone.')]);
    const seen = new Set();
    const others = (answer.references ?? []).filter(one => { const href = recordLink(one.table, one.key); return !seen.has(href) && seen.add(href); });
    fill(leads, others.length ? [el('header', {}, el('h2', {}, 'Leads to')), table({caption: 'Entries that this one leads to', hidden: true, head: ['Entry', 'By'],
      rows: others.map(one => [{body: el('a', {class: 'mono', href: recordLink(one.table, one.key)}, `${one.table} ${Object.entries(one.key).map(([k, v]) => `${k}=${shown(v)}`).join(' ')}`)}, {body: one.field, class: 'quiet mono'}])})] : []);
    leads.hidden = !others.length;
  };
  for (const control of [zeros, words]) control.addEventListener('input', show);
  await load();
  leads.className = 'card';
  text.className = 'card';
  view.fill(el('div', {class: 'row middle tools'}, words, el('label', {class: 'row middle'}, zeros, 'zeros as well'),
    el('a', {class: 'button', href: link(`table/${name}`)}, `All of ${name}`),
    name === 'session' ? el('a', {class: 'button', href: endOf(answer.record)}, 'End it …') : null),
  el('div', {class: 'cards'}, el('div', {class: 'card two-thirds'}, body), el('div', {class: 'cards stack third'}, text, leads)));
  view.every(3, load);
}
