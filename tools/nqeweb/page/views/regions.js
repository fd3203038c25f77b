// The shared regions, and the fields of one.
import {el, fill, shown, table} from '../lib/dom.js';
import {bytes, node} from '../lib/format.js';
import {link} from '../lib/route.js';
import {notice} from '../lib/view.js';

async function all(view) {
  view.title('Regions', 'Memory that the engine shares with its tools, beside the tables');
  const {regions} = await view.ask('regions', {}, {shown: true});
  view.fill(el('div', {class: 'card'}, el('div', {class: 'wide'}, table({
    caption: `${regions.length} regions`, head: ['Region', 'Holds', {body: 'Size', class: 'num'}],
    rows: regions.map(one => [{body: el('a', {class: 'mono', href: link(`region/${one.name}`)}, one.name)}, {body: one.about, class: 'quiet meaning'}, {body: bytes(one.size), class: 'num'}]),
  }))));
}

function flat(value, path = '') {
  if (value === null || typeof value !== 'object' || 'stale' in value) return [[path, value]];
  return Object.entries(value).flatMap(([name, inner]) => flat(inner, Array.isArray(value) ? `${path}[${name}]` : path ? `${path}.${name}` : name));
}

// Meanings by path, out of the JSON Schema; elements of arrays all have the same.
function meanings(schema, defs, path = '', all = new Map()) {
  const to = schema.$ref ? defs[schema.$ref.replace('#/$defs/', '')] ?? {} : schema;
  if (path) all.set(path, {about: schema.description ?? to.description ?? '', unit: to['x-unit']});
  for (const [name, inner] of Object.entries(to.properties ?? {})) meanings(inner, defs, path ? `${path}.${name}` : name, all);
  if (to.items) meanings(to.items, defs, `${path}[]`, all);
  return all;
}

async function one(view, name) {
  view.title(name);
  const schema = await view.ask(`schema/${encodeURIComponent(name)}`, {engine: ''});
  view.title(name, schema.description ?? '');
  const meaning = meanings(schema.$defs?.[name] ?? {}, schema.$defs ?? {});
  const place = el('div', {class: 'wide'});
  const load = async () => {
    const {records} = await view.ask(`regions/${encodeURIComponent(name)}`, {}, {shown: true});
    fill(place, records.length ? records.map(record => table({
      caption: name, hidden: true, head: ['Field', 'Value', 'Meaning'],
      rows: flat(record).map(([path, value]) => {
        const field = meaning.get(path.replace(/\[\d+\]/g, '[]'));
        return [{body: el('span', {class: 'mono'}, path)}, {body: [node(value, field), field?.unit ? el('span', {class: 'quiet'}, ` ${field.unit}`) : null], class: 'value'}, {body: shown(field?.about ?? ''), class: 'quiet meaning'}];
      }),
    })) : notice('info', 'Nothing stands in it'));
  };
  await load();
  view.fill(el('div', {class: 'card'}, place));
  view.every(2, load);
}

export default view => (view.path[1] ? one(view, view.path[1]) : all(view));
