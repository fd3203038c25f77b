// The frame of the page: where one is, which engine is looked at and whether it is there.
import {address, ask, onTokenNeeded, token} from './lib/api.js';
import {by, el, fill, say} from './lib/dom.js';
import {clock} from './lib/format.js';
import {dialog, start as startKeys} from './lib/keys.js';
import {follow, on} from './lib/live.js';
import {currentEngine, go, link, parse} from './lib/route.js';
import {notice, View} from './lib/view.js';

// Path of a view, its module, its word in the list of views and the group that it begins.
const views = [
  ['', 'overview', 'Overview'],
  ['check', 'check', 'Findings'],
  ['statistics', 'statistics', 'Counters'],
  ['tables', 'tables', 'Tables', 'What it holds'],
  ['sessions', 'table', 'Sessions'],
  ['regions', 'regions', 'Regions'],
  ['trace', 'trace', 'Packet trace', 'What it does'],
  ['measure', 'measure', 'Tasks and points'],
  ['reset', 'reset', 'Resets'],
  ['diff', 'diff', 'Compare', 'Questions'],
  ['sql', 'sql', 'SQL'],
  ['engines', 'engines', 'Engines'],
  ['table', 'table'], ['record', 'record'], ['search', 'search'], ['region', 'regions'],
];
const parents = {table: 'tables', record: 'tables', region: 'regions'};

let view = null;
let engines = [];
let changes = false;
let findings = null;

const readable = engine => !engine || engine.state === 'up' || engine.state === 'saved';
const current = () => (currentEngine() ? engines.find(engine => engine.name === currentEngine()) : engines[0]);
// An address from a colleague can name an engine that this console does not have.
const unknown = () => currentEngine() && engines.length && !current();

// What an engine's state means, for people: the word for the lamp, and a sentence for the notice.
const words = {
  up: ['running', ''],
  saved: ['saved copy', ''],
  missing: ['not there', 'There is no arena at its place: it has not started yet, or has gone.'],
  ended: ['ended', 'It has ended. What is shown is the last that was read of it.'],
  damaged: ['damaged', 'Its arena is damaged and is not read.'],
  version: ['other version', 'Its arena is of another version than this console reads.'],
  unreadable: ['not readable', 'Its arena may not be read by this console.'],
};

function navigation() {
  const [first] = parse().path;
  const at = parents[first] ?? first;
  fill(by('nav'), views.filter(([, , name]) => name).map(([path, , name, group]) => [
    group ? el('div', {class: 'group'}, group) : null,
    el('a', {href: link(path), 'aria-current': path === at ? 'page' : undefined}, el('span', {}, name),
      path === 'check' && findings ? el('span', {class: `badge ${findings ? 'bad' : ''}`, 'aria-label': `${findings} findings`}, findings) : null)]));
  // On a narrow screen the views are one line that scrolls.
  const here = by('nav').querySelector('[aria-current]');
  if (here && by('nav').scrollWidth > by('nav').clientWidth) by('nav').scrollLeft = here.offsetLeft - 40;
  document.querySelector('.brand').setAttribute('href', link(''));
}

function lamp(server = true) {
  const engine = current();
  const state = !server || unknown() ? 'gone' : !engine ? 'wait' : engine.state === 'up' || engine.state === 'saved' ? engine.state : 'gone';
  by('state').dataset.state = state;
  by('state-text').textContent = !server ? 'console unreachable' : unknown() ? 'no such engine' : engine ? words[engine.state]?.[0] ?? engine.state : 'connecting';
  by('state').title = engine?.message ?? engine?.path ?? '';
}

function choices() {
  const select = by('engine');
  select.disabled = engines.length < 2;
  fill(select, engines.map(engine => el('option', {value: engine.name}, readable(engine) ? engine.name : `${engine.name} (${words[engine.state]?.[0] ?? engine.state})`)));
  select.value = current()?.name ?? '';
}

const tellGone = () => {
  const engine = current();
  if (!engine || readable(engine)) return;
  const [word, meaning] = words[engine.state] ?? [engine.state, ''];
  fill(by('notice'), notice('bad', `${engine.name}: ${word}`, engine.message && engine.state !== 'ended' ? engine.message : meaning,
    el('span', {class: 'quiet'}, engine.state === 'missing' || engine.state === 'ended' ? engine.lost ? `since ${clock(engine.lost)}; this page goes on when it is back` : 'this page goes on when it is there' : '')));
};

// The news of an engine's state. Who comes back is shown anew.
function changed({engine: name, state, message}) {
  const known = engines.find(engine => engine.name === name);
  if (!known) return;
  const was = readable(known);
  Object.assign(known, {state, message});
  const is = readable(known);
  if (was && !is) known.lost = Date.now();
  choices();
  lamp();
  if (known !== current()) return;
  if (!is) {
    tellGone();
    if (was) say(`${name} has gone`);
  } else if (!was) {
    fill(by('notice'), notice('good', `${name} is back`, `seen at ${clock(Date.now())}`,
      el('button', {type: 'button', class: 'plain', 'aria-label': 'Dismiss', onclick: () => fill(by('notice'))}, '✕')));
    say(`${name} is back`);
    void show();
  }
}

async function loadEngines() {
  const {document: answer} = await ask('engines', {engine: ''});
  engines = answer.engines.map(engine => ({...engine, lost: engines.find(one => one.name === engine.name)?.lost}));
  changes = answer.changes;
  choices();
  lamp();
}

function setFindings(count) {
  if (findings === count) return;
  findings = count;
  navigation();
}

async function show() {
  view?.end();
  const {path, params} = parse();
  const [, module] = views.find(([name]) => name === path[0]) ?? [];
  const next = new View(path, params);
  view = next;
  next.away = () => !readable(current());
  next.engines = () => engines;
  next.engine = current;
  next.changes = () => changes;
  next.findings = setFindings;
  navigation();
  choices();
  lamp();
  if (unknown()) fill(by('notice'), notice('bad', `This console has no engine ${currentEngine()}`, 'The address names one that it was not started with.', el('a', {href: '#/engines'}, 'Those that it has')));
  else if (readable(current())) { if (!by('notice').querySelector('.good')) fill(by('notice')); } else tellGone();
  if (path[0] !== 'search') by('query').value = '';
  next.place.setAttribute('aria-busy', 'true');
  fill(by('actions'));
  if (!module) {
    next.title('Nothing here');
    next.fill(el('p', {class: 'empty'}, 'This address leads to no view. ', el('a', {href: link('')}, 'Overview')));
    return;
  }
  try {
    const {default: draw} = await import(`./views/${module}.js`);
    if (next.over) return;
    await draw(next);
    // What a view listens for comes from the engine that it shows.
    follow(address('events'), next.listens);
  } catch (failure) {
    follow(address('events'));
    next.failed(failure, () => show());
  }
}

// Several questions may find out at the same time that a token is needed: they wait for one answer.
let asking = null;
function askForToken(wasWrong) {
  asking ??= new Promise(done => {
    const field = el('input', {type: 'password', 'aria-label': 'Token', autocomplete: 'off', class: 'grow'});
    const form = el('form', {class: 'row', method: 'dialog'}, field, el('button', {class: 'main'}, 'Go on'));
    const box = dialog('Token', el('p', {class: 'tools'}, wasWrong ? 'The console does not take this token.' : 'This takes the console’s token: the first line of the file that nqeweb was started with (--token-file).'), form);
    let given = false;
    form.addEventListener('submit', () => {
      given = Boolean(field.value.trim());
      if (given) token.set(field.value.trim());
    });
    box.addEventListener('close', () => {
      asking = null;
      done(given);
    });
  });
  return asking;
}

function start() {
  parse();
  startKeys();
  onTokenNeeded(askForToken);
  by('theme').addEventListener('click', () => {
    const theme = document.documentElement.dataset.theme === 'dark' ? 'light' : 'dark';
    document.documentElement.dataset.theme = theme;
    try { localStorage.setItem('theme', theme); } catch { /* for this page only, then */ }
    say(`${theme} colours`);
  });
  by('search').addEventListener('submit', event => {
    event.preventDefault();
    const value = by('query').value.trim();
    if (value) go('search', {q: value});
  });
  by('engine').addEventListener('change', event => {
    const {path, params} = parse();
    const kept = ['table', 'tables', 'sessions', 'statistics', 'check', 'measure', 'trace', 'reset', 'regions', 'region', 'sql', 'search'].includes(path[0]) ? path.join('/') : '';
    const words = kept ? Object.fromEntries([...new Set(params.keys())].map(name => [name, params.getAll(name)])) : {};
    fill(by('notice'));
    go(kept, {...words, engine: event.target.value});
  });
  by('skip').addEventListener('click', event => {
    event.preventDefault();
    by('main').focus();
  });
  on('state', changed);
  on('connection', open => {
    lamp(open);
    if (open) void loadEngines().then(() => { if (by('notice').querySelector('[data-server]')) { fill(by('notice')); void show(); } }, () => {});
    else fill(by('notice'), el('div', {'data-server': ''}, notice('bad', 'The console does not answer', 'nqeweb has ended or cannot be reached. What is shown may be old; this page goes on by itself.')));
  });
  addEventListener('hashchange', async () => {
    fill(by('notice'));
    await show();
    by('main').focus({preventScroll: true});
    scrollTo(0, 0);
  });
  navigation();
  loadEngines().catch(() => {}).then(show);
}

start();
