// Numbers, times and values of records as people read them.
import {el, shown} from './dom.js';
import {link} from './route.js';

const grouped = new Intl.NumberFormat('en-US');
export const number = n => (n === null || n === undefined ? '–' : grouped.format(n));

function scaled(n, base, units) {
  let i = 0;
  while (Math.abs(n) >= base && i < units.length - 1) n /= base, i++;
  const digits = n !== 0 && Math.abs(n) < 10 && (i || n % 1) ? (Math.abs(n) < 1 ? 2 : 1) : 0;
  return `${n.toFixed(digits)}${units[i]}`;
}

export const short = n => scaled(n, 1000, ['', ' k', ' M', ' G', ' T']);
export const bytes = n => scaled(n, 1024, [' B', ' KiB', ' MiB', ' GiB', ' TiB']);
export const bits = n => scaled(n * 8, 1000, [' bit/s', ' kbit/s', ' Mbit/s', ' Gbit/s', ' Tbit/s']);
export const rate = n => `${short(n)}/s`;
export const percent = n => `${n < 10 && n > 0 ? n.toFixed(1) : Math.round(n)} %`;

export function duration(seconds) {
  const s = Math.max(0, Math.round(seconds));
  const parts = [[Math.floor(s / 86400), 'd'], [Math.floor(s / 3600) % 24, 'h'], [Math.floor(s / 60) % 60, 'min'], [s % 60, 's']];
  const first = parts.findIndex(([n]) => n);
  return first < 0 ? '0 s' : parts.slice(first, first + 2).filter(([n]) => n).map(([n, u]) => `${n} ${u}`).join(' ');
}

const two = n => String(n).padStart(2, '0');
export function clock(time) {
  const t = new Date(time);
  return `${two(t.getHours())}:${two(t.getMinutes())}:${two(t.getSeconds())}`;
}
export function moment(time) {
  const t = new Date(time);
  return Number.isNaN(t.getTime()) ? shown(time) : `${t.getFullYear()}-${two(t.getMonth() + 1)}-${two(t.getDate())} ${clock(time)}`;
}

const protocols = {1: 'ICMP', 2: 'IGMP', 6: 'TCP', 17: 'UDP', 41: 'IPv6', 47: 'GRE', 50: 'ESP', 51: 'AH', 58: 'ICMPv6', 89: 'OSPF', 132: 'SCTP'};
export const protocol = n => protocols[n] ?? `protocol ${n}`;

// Conditions that name one entry: the API's and nqecli's KEY=VALUE, once each.
export const keyWords = key => Object.entries(key).filter(([, value]) => value !== undefined).map(([name, value]) => `${name}=${value}`);
export const recordLink = (table, key) => link(`record/${table}`, {key: keyWords(key)});

// A reference as the layouts tell of it: {"index": 5}, {"nhp": {...}} where it could be one of several, {"stale": "0x..."}.
export function reference(value, targets) {
  if (value === null || typeof value !== 'object' || Array.isArray(value)) return null;
  if ('stale' in value) return {stale: value.stale};
  const [name] = Object.keys(value);
  const inner = value[name];
  if (inner && typeof inner === 'object') return 'stale' in inner ? {table: name, stale: inner.stale} : {table: name, key: inner};
  return targets.length === 1 ? {table: targets[0], key: value} : null;
}

export const targetsOf = field => (field?.kind?.startsWith('ref ') ? field.kind.slice(4).split('|') : []);

// What stands at a path such as positive.source, or l3_services[0-3].type (a list of its elements).
export function at(record, path) {
  let value = record;
  for (const part of path.split('.')) {
    if (value === null || value === undefined) return value;
    const [, name, , index] = /^([^[]*)(\[(.*)\])?$/.exec(part) ?? [];
    value = Array.isArray(value) ? value.map(v => v?.[name]) : value[name];
    if (index !== undefined && /^\d+$/.test(index)) value = value?.[Number(index)];
  }
  return value;
}

export function plain(value, field) {
  if (value === undefined) return '';
  if (value === null) return '–';
  if (value === true) return 'yes';
  if (value === false) return 'no';
  if (typeof value === 'number') return String(value);
  if (typeof value === 'string') return shown(value);
  const to = reference(value, targetsOf(field));
  if (to?.key) return `${to.table}/${Object.values(to.key).map(shown).join('/')}`;
  if (to) return `${to.table ?? ''}${to.table ? '/' : ''}stale`;
  if (Array.isArray(value)) return value.length ? value.map(v => plain(v)).join(', ') : 'none';
  return Object.entries(value).map(([k, v]) => `${k} ${plain(v)}`).join('  ');
}

// A value as something to read or to follow.
export function node(value, field) {
  const to = reference(value, targetsOf(field));
  if (to?.key) return el('a', {href: recordLink(to.table, to.key)}, plain(value, field));
  if (to) return el('span', {class: 'stale', title: 'leads to a place where no entry is any more'}, plain(value, field));
  if (value === true || value === false) return el('span', {class: value ? 'yes' : 'no'}, plain(value));
  return plain(value, field);
}
