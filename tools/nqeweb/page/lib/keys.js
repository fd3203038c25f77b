// Shortcuts. A letter alone acts only where nothing is being typed.
import {by, el, fill} from './dom.js';
import {go} from './route.js';

const places = {o: ['', 'Overview'], t: ['tables', 'Tables'], s: ['sessions', 'Sessions'], c: ['statistics', 'Counters'], f: ['check', 'Findings'],
  p: ['trace', 'Packet trace'], m: ['measure', 'Task graph and points'], x: ['reset', 'Resets'], r: ['regions', 'Regions'], d: ['diff', 'Compare'], q: ['sql', 'SQL'], e: ['engines', 'Engines']};
let pending = 0;
const local = new Map();

// A view's own shortcut, until it is left.
export function key(letter, meaning, act, signal) {
  local.set(letter, {meaning, act});
  signal.addEventListener('abort', () => { if (local.get(letter)?.act === act) local.delete(letter); });
}

const typing = target => target.closest?.('input, select, textarea, [contenteditable]');

function press(event) {
  if (event.ctrlKey || event.metaKey || event.altKey || event.defaultPrevented) return;
  if (event.key === 'Escape' && typing(event.target)) return event.target.blur();
  if (typing(event.target) || document.querySelector('dialog[open]')) return undefined;
  const letter = event.key;
  const act = () => {
    if (Date.now() < pending && places[letter]) return () => go(places[letter][0]);
    if (letter === 'g') return () => { pending = Date.now() + 1500; };
    if (letter === '/') return () => by('query').select();
    if (letter === '?') return showHelp;
    return local.get(letter)?.act;
  };
  const does = act();
  if (!does) return undefined;
  if (letter !== 'g') pending = 0;
  event.preventDefault();
  return does();
}

export function dialog(title, ...content) {
  const box = el('dialog', {'aria-label': title});
  const close = el('button', {type: 'button', class: 'plain', 'aria-label': 'Close', onclick: () => box.close()}, '✕');
  fill(box, el('header', {}, el('h2', {}, title), close), content);
  box.addEventListener('close', () => box.remove());
  box.addEventListener('click', event => { if (event.target === box) box.close(); });
  document.body.append(box);
  box.showModal();
  return box;
}

function showHelp() {
  const line = (keys, meaning) => el('tr', {}, el('th', {scope: 'row'}, keys.map(k => [el('kbd', {}, k), ' '])), el('td', {}, meaning));
  dialog('Keyboard', el('table', {class: 'data'}, el('tbody', {},
    line(['/'], 'find a value, explain an address'),
    line(['?'], 'this help'),
    [...local].map(([letter, {meaning}]) => line([letter], meaning)),
    line(['↑', '↓', 'Enter'], 'in lists: from entry to entry, open one'),
    line(['Esc'], 'leave a field, close a dialog'),
    Object.entries(places).map(([letter, [, name]]) => line(['g', letter], name)))));
}

export function start() {
  addEventListener('keydown', press);
  by('help').addEventListener('click', showHelp);
}
