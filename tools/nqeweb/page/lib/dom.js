// Elements out of data. Everything that an engine says reaches the page through here, as text nodes and checked
// attributes: a record can hold whatever a stranger sent, and none of it is ever markup.

// Characters that turn the direction of what follows, or that cannot be seen, could make one text look like another: they
// are written as nqecli writes bytes that cannot be printed.
const unseen = /[\u0000-\u0008\u000b-\u001f\u007f-\u009f\u00ad\u061c\u180e\u200b-\u200f\u202a-\u202e\u2060-\u206f\ufeff\ufff9-\ufffb]/g;

const utf8 = new TextEncoder();

export function shown(text) {
  return String(text).replace(unseen, c => [...utf8.encode(c)].map(byte => `\\x${byte.toString(16).padStart(2, '0')}`).join(''));
}

const spoken = new Set(['title', 'aria-label', 'placeholder']);

function put(node, name, value) {
  if (value === undefined || value === null || value === false) return;
  if (name === 'class') node.setAttribute('class', value);
  else if (name === 'style') for (const [rule, is] of Object.entries(value)) node.style.setProperty(rule, is);
  else if (name.startsWith('on')) node.addEventListener(name.slice(2), value);
  else if (name === 'href' && !/^(#|\/api\/)/.test(value)) throw new Error(`a link may only stay here: ${value}`);
  else if (name === 'value' || name === 'checked' || name === 'disabled') node[name] = value;
  else node.setAttribute(name, value === true ? '' : spoken.has(name) ? shown(value) : value);
}

function add(node, children) {
  for (const child of children.flat(Infinity)) {
    if (child === undefined || child === null || child === false) continue;
    node.append(child instanceof Node ? child : shown(child));
  }
  return node;
}

export function el(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  // Values of a select exist only once its options do.
  add(node, children);
  for (const [name, value] of Object.entries(attributes)) put(node, name, value);
  return node;
}

export function svg(tag, attributes = {}, ...children) {
  const node = document.createElementNS('http://www.w3.org/2000/svg', tag);
  for (const [name, value] of Object.entries(attributes)) put(node, name, value);
  return add(node, children);
}

export function fill(node, ...children) {
  node.replaceChildren();
  return add(node, children);
}

export const by = id => document.getElementById(id);

// For people who listen: a line that is read out.
export function say(text) {
  by('said').textContent = '';
  requestAnimationFrame(() => { by('said').textContent = text; });
}

const kLong = /\S{49}/;

// A table with a caption and rows of cells; a cell is text, a node, or {text, class, sort}.
export function table({caption, head, rows, classes = '', hidden = false}) {
  const cell = (value, tag = 'td', extra = {}) => {
    const plain = value === null || typeof value !== 'object' || value instanceof Node || Array.isArray(value);
    const {body = value, ...rest} = plain ? {} : value;
    const made = el(tag, {...extra, ...rest}, body);
    // A word that is longer than any of ours is broken where the room ends.
    if (kLong.test(made.textContent)) made.classList.add('long');
    return made;
  };
  return el('table', {class: `data ${classes}`},
    el('caption', {class: hidden ? 'unseen' : undefined}, caption),
    el('thead', {}, el('tr', {}, head.map(text => cell(text, 'th', {scope: 'col'})))),
    el('tbody', {}, rows.map(row => el('tr', {}, row.map((value, i) => cell(value, i ? 'td' : 'th', i ? {} : {scope: 'row'}))))));
}
