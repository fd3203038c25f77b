// What `check` found, as rows for a table.
import {el, shown, table} from './dom.js';
import {keyWords, recordLink} from './format.js';
import {link} from './route.js';

export function findings(list, caption, hidden = false) {
  return table({
    caption, hidden, head: ['Severity', 'Entry', 'Field', 'What is wrong'],
    rows: list.map(one => [
      {body: el('span', {class: `badge ${one.severity === 'error' ? 'bad' : 'warn'}`}, one.severity)},
      {body: one.table
        ? el('a', {class: 'mono', href: one.key ? recordLink(one.table, one.key) : link(`table/${one.table}`)}, `${one.table} ${one.key ? keyWords(one.key).map(shown).join(' ') : ''}`)
        : el('a', {class: 'mono', href: link(`region/${one.region}`)}, one.region)},
      {body: one.field ?? '–', class: 'value'},
      {body: shown(one.problem), class: 'meaning'},
    ]),
  });
}
