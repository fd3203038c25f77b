// All engines that this console reads, with their states.
import {el, fill, shown, table} from '../lib/dom.js';
import {link} from '../lib/route.js';

const kinds = {up: 'good', saved: 'info'};

export default async function draw(view) {
  view.title('Engines', 'Arenas and saved copies that this console was started with');
  const place = el('div', {class: 'wide'});
  const load = async () => {
    const {engines} = await view.ask('engines', {engine: ''}, {shown: true});
    fill(place, table({
      caption: `${engines.length} engines`, head: ['Engine', 'State', 'Place'],
      rows: engines.map(one => [
        {body: el('a', {href: link('', {engine: one.name})}, one.name), class: 'name'},
        {body: [el('span', {class: `badge ${kinds[one.state] ?? 'bad'}`}, one.state), one.message ? el('span', {class: 'quiet'}, ` ${shown(one.message)}`) : null]},
        {body: shown(one.path ?? ''), class: 'mono quiet'}]),
    }));
  };
  await load();
  view.fill(el('div', {class: 'card'}, place));
  view.on('state', () => load().catch(() => {}));
}
