// What a view gets: its place, its words, and a signal that ends when it is left.
import {ask, Problem, token} from './api.js';
import {by, el, fill, say, shown} from './dom.js';
import {key} from './keys.js';
import {on} from './live.js';

export async function copy(text, button) {
  try {
    await navigator.clipboard.writeText(text);
  } catch {
    // Without the permission, and where the page did not come by TLS or from this machine.
    const box = el('textarea', {class: 'unseen', 'aria-hidden': 'true'}, text);
    document.body.append(box);
    box.select();
    document.execCommand('copy');
    box.remove();
  }
  const was = button.textContent;
  button.textContent = 'copied';
  say('Copied');
  setTimeout(() => { button.textContent = was; }, 1200);
}

export function notice(kind, title, detail, ...more) {
  return el('div', {class: `notice ${kind}`, role: kind === 'bad' ? 'alert' : undefined},
    el('strong', {}, title), detail ? el('span', {}, detail) : null, more);
}

// A link cannot show a token; then the document is fetched and saved.
async function save(event, url) {
  if (!token.get()) return;
  event.preventDefault();
  const {document: answer} = await ask(url.replace('/api/v1/', ''), {engine: ''});
  const place = URL.createObjectURL(new Blob([JSON.stringify(answer, null, 1)], {type: 'application/json'}));
  const link = document.createElement('a');
  link.href = place;
  link.download = `${url.replace(/^\/api\/v1\/|\?.*$/g, '').replaceAll('/', '-')}.json`;
  link.click();
  URL.revokeObjectURL(place);
}

export class View {
  constructor(path, params) {
    this.path = path;
    this.params = params;
    this.ending = new AbortController();
    this.signal = this.ending.signal;
    this.place = by('view');
    this.sources = '';
    this.listens = false;  // also while the tab is not seen
  }

  end() { this.ending.abort(); }
  get over() { return this.signal.aborted; }

  title(text, about = '') {
    by('title').textContent = shown(text);
    by('about').textContent = shown(about);
    document.title = `${shown(text)} – nqe console`;
  }

  // A question whose answer this view shows: the buttons of the head lead to it. A value that is empty or undefined is not asked.
  async ask(path, params, {shown = false} = {}) {
    const answer = await ask(path, params, this.signal);
    if (shown) this.source(answer.url, answer.command);
    return answer.document;
  }

  source(url, command) {
    const now = `${url}\n${command}`;
    if (now === this.sources || this.over) return;
    this.sources = now;
    const parts = [el('a', {class: 'button', href: url, target: '_blank', rel: 'noopener', onclick: event => void save(event, url), title: 'The same as JSON, in a tab of its own'}, 'JSON')];
    if (command) {
      const button = el('button', {type: 'button', title: 'Copy the command that shows the same', onclick: () => copy(command, button)}, 'Copy');
      parts.unshift(el('div', {class: 'command'}, el('code', {title: command, 'aria-label': 'Command that shows the same'}, command), button));
      key('c', 'copy the nqecli command', () => copy(command, button), this.signal);
    }
    fill(by('actions'), parts);
  }

  fill(...children) {
    if (this.over) return;
    fill(this.place, children);
    this.place.removeAttribute('aria-busy');
  }

  on(type, listener) { on(type, listener, this.signal); }

  key(letter, meaning, act) { key(letter, meaning, act, this.signal); }

  // Again and again while the view is shown and seen; one at a time, and not while the engine is away.
  every(seconds, act, {unseen = false} = {}) {
    let busy = false;
    const turn = async () => {
      if (busy || (document.hidden && !unseen) || this.away?.()) return;
      busy = true;
      try {
        await act();
      } catch (failure) {
        // What was shown stays; that the engine is away is said elsewhere.
        if (!(failure instanceof Problem) && failure.name !== 'AbortError') throw failure;
      } finally {
        busy = false;
      }
    };
    const timer = setInterval(turn, seconds * 1000);
    this.signal.addEventListener('abort', () => clearInterval(timer));
    return turn;
  }

  failed(failure, retry) {
    if (failure.name === 'AbortError' || this.over) return;
    if (!(failure instanceof Problem)) console.error(failure);
    const again = retry && el('button', {type: 'button', onclick: retry}, 'Try again');
    this.fill(notice('bad', failure.title ?? 'The page failed here', failure.detail ?? String(failure.message), again));
  }
}
