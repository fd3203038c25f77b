// What the console says on its own account: engines that end and come back, samples, lines of the packet trace. Server-sent
// events, read with fetch: an EventSource cannot show a token.
import {headers} from './api.js';

const listeners = new Map();
let following = null;
let open = null;

export function on(type, listener, signal) {
  if (!listeners.has(type)) listeners.set(type, new Set());
  listeners.get(type).add(listener);
  signal?.addEventListener('abort', () => listeners.get(type).delete(listener));
}

function tell(type, data) { for (const listener of listeners.get(type) ?? []) listener(data); }

function opened(now) {
  if (open === now) return;
  open = now;
  tell('connection', now);
}

// One event: lines of "name: value", of which several "data" belong together.
function read(block) {
  let type = 'message';
  const data = [];
  for (const line of block.split('\n')) {
    if (line.startsWith('event:')) type = line.slice(6).trim();
    else if (line.startsWith('data:')) data.push(line.slice(5).replace(/^ /, ''));
  }
  if (!data.length) return;
  let document;
  try {
    document = JSON.parse(data.join('\n'));
  } catch {
    return;  // a line that is no document says nothing
  }
  tell(type, document);
}

async function listen(url, signal) {
  const reply = await fetch(url, {signal, headers: {...headers(), Accept: 'text/event-stream'}});
  // Who refuses is there: no such engine, no token, too many listeners. It is asked again.
  opened(true);
  if (!reply.ok) return false;
  const reader = reply.body.pipeThrough(new TextDecoderStream()).getReader();
  let rest = '';
  for (;;) {
    const {value, done} = await reader.read();
    if (done) return true;
    const blocks = (rest + value).replaceAll('\r', '').split('\n\n');
    rest = blocks.pop();
    blocks.forEach(read);
  }
}

const pause = ms => new Promise(done => { setTimeout(done, ms); });

let of = null;
let keeps = false;

// A browser has six connections to a console for all its tabs together: a tab that is not seen listens no longer, unless
// `keep` says that nothing may be missed.
const listens = () => of && (keeps || !document.hidden);

async function go(url) {
  const mine = new AbortController();
  following = mine;
  for (let wait = 500; !mine.signal.aborted; wait = Math.min(wait * 2, 5000)) {
    const began = Date.now();
    let ended = true;
    try {
      ended = await listen(url, mine.signal);
    } catch {
      // It is tried again; what it means is told to who listens.
    }
    if (mine.signal.aborted) return;
    if (ended) opened(false);
    if (Date.now() - began > 10000) wait = 250;
    await pause(wait);
  }
}

function update(stop) {
  if (stop || !listens()) {
    following?.abort();
    following = null;
  }
  if (!following && listens()) void go(of);
}

export function follow(url, keep = false) {
  const other = of !== url;
  of = url;
  keeps = keep;
  update(other);
}

document.addEventListener('visibilitychange', () => update(false));
// A page that is left may be kept by the browser, with its connection.
addEventListener('pagehide', () => { following?.abort(); following = null; });
addEventListener('pageshow', event => { if (event.persisted) update(false); });
