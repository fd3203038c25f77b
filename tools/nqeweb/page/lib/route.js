// Every view has an address of its own, behind the #: it can be sent to a colleague, and never reaches the server.
let engine = '';
export const currentEngine = () => engine;

export function parse(hash = location.hash) {
  const [path, query = ''] = hash.replace(/^#\/?/, '').split(/\?(.*)/s);
  const params = new URLSearchParams(query);
  engine = params.get('engine') ?? '';
  return {path: path.split('/').map(part => { try { return decodeURIComponent(part); } catch { return part; } }), params};
}

// The address of a view of the same engine; lists stand as the same word several times.
export function link(path, params = {}) {
  const query = new URLSearchParams();
  for (const [name, value] of Object.entries({engine, ...params})) {
    for (const one of [value].flat()) if (one !== undefined && one !== null && one !== '') query.append(name, one);
  }
  const text = query.toString();
  return `#/${path}${text ? `?${text}` : ''}`;
}

// A view that is shown already is shown anew.
export function go(path, params) {
  const to = link(path, params);
  if (location.hash === to) dispatchEvent(new HashChangeEvent('hashchange'));
  else location.hash = to;
}

// Changes the address of the view that is shown without showing it anew.
export function rewrite(path, params) { history.replaceState(null, '', link(path, params)); }
