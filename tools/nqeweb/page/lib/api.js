// The interface under /api/v1. What went wrong is a problem document (RFC 9457) there, and an error here.
import {currentEngine} from './route.js';

export class Problem extends Error {
  constructor({title, detail, status, type = ''}) {
    super(detail && detail !== title ? `${title}: ${detail}` : title);
    Object.assign(this, {title, detail, status, kind: type.replace(/^urn:qdt:problem:/, '')});
  }
}

export function query(params) {
  const words = new URLSearchParams();
  for (const [name, value] of Object.entries(params)) {
    for (const one of [value].flat()) if (one !== undefined && one !== null && one !== '') words.append(name, one);
  }
  const text = words.toString();
  return text && `?${text}`;
}

export const address = (path, params = {}) => `/api/v1/${path}${query({engine: currentEngine(), ...params})}`;

// Where the console takes a token for everything, or for what changes something, it is kept for this tab alone.
export const token = {
  get: () => sessionStorage.getItem('token') ?? '',
  set: value => sessionStorage.setItem('token', value),
};
export const headers = () => (token.get() ? {Authorization: `Bearer ${token.get()}`} : {});
// Asks the user for a token; true when there is another one to try.
let askToken = async () => false;
export function onTokenNeeded(ask) { askToken = ask; }

async function request(url, options) {
  try {
    return await fetch(url, {...options, headers: {Accept: 'application/json', ...headers(), ...options.headers}});
  } catch (failure) {
    if (failure.name === 'AbortError') throw failure;
    throw new Problem({title: 'The console does not answer', detail: 'nqeweb has ended, or cannot be reached from here', status: 0});
  }
}

async function answer(url, options) {
  let reply = await request(url, options);
  if (reply.status === 401 && await askToken(Boolean(token.get()))) reply = await request(url, options);
  if (!reply.ok) {
    const said = await reply.json().catch(() => ({}));
    throw new Problem({title: `The console answered ${reply.status}`, ...said, status: reply.status});
  }
  try {
    return {url, document: await reply.json(), command: reply.headers.get('Nqe-Command') ?? ''};
  } catch (failure) {
    if (failure.name === 'AbortError') throw failure;
    // A document that could not be finished never looks whole.
    throw new Problem({title: 'The answer was cut off', detail: 'the engine ended, or changed faster than it could be read', status: reply.status});
  }
}

// {document, command, url} of a question.
export const ask = (path, params, signal) => answer(address(path, params), {signal});

export const change = (path, body) =>
  answer(address(path), {method: 'POST', headers: {'Content-Type': 'application/json'}, body: JSON.stringify(body)});
