// What a support engineer wants to know first: which engine, since when, what is full, what is discarded, what is wrong.
import {Chart, meter, spark} from '../lib/chart.js';
import {el, fill, shown, table} from '../lib/dom.js';
import {findings} from '../lib/findings.js';
import {bits, bytes, duration, moment, number, percent, rate} from '../lib/format.js';
import {curves, join} from '../lib/history.js';
import {link} from '../lib/route.js';
import {notice} from '../lib/view.js';

const kSpan = 600;     // seconds of curves
const kCurves = 7;     // the others are one curve together
const kWarn = 80;      // percent
const sum = values => values.reduce((all, value) => all + (value ?? 0), 0);
const last = values => values.findLast(value => value !== null) ?? 0;

function card(kind, title, side, ...content) {
  return el('section', {class: `card ${kind}`, 'aria-label': title}, el('header', {}, el('h2', {}, title), side), content);
}

function identity(place, {engine, snapshot, seconds, totals, health}) {
  const fact = (name, value, kind = '') => el('div', {}, el('dt', {}, name), el('dd', {class: kind}, value));
  const full = health.full.filter(name => name);
  fill(place, el('dl', {class: 'facts'},
    fact('Engine', shown(engine), 'big'),
    snapshot.saved ? fact('Saved', moment(snapshot.saved), 'big') : fact('Running for', seconds === null ? '–' : duration(seconds), 'big'),
    fact('Version', snapshot.version, 'big'),
    fact('Entries', number(totals.entries), 'big'),
    fact('Nearly full', full.length ? el('span', {class: 'bad'}, full.join(', ')) : 'no table', 'big'),
    fact('Discarded in all', health.discarded === null ? '–' : number(health.discarded), 'big'),
    fact('Errors in all', health.errors === null ? '–' : number(health.errors), 'big'),
    fact('Started', moment(snapshot.engine.started)),
    fact('Process', snapshot.engine.pid),
    fact('Tables', `${number(snapshot.tables)} of ${number(totals.tables)} in use`),
    fact('Storage', bytes(totals.bytes))));
}

export default async function draw(view) {
  view.title('Overview', view.engine()?.path ?? '');
  const facts = el('div');
  const chart = new Chart({label: 'Discarded packets a second, by reason', signal: view.signal, format: rate});
  const reasons = el('div', {class: 'wide'});
  const traffic = el('div', {class: 'wide'});
  const fullest = el('div', {class: 'wide'});
  const wrong = el('div', {class: 'wide'});
  const discardsNow = el('span', {class: 'quiet'});
  const more = (path, text) => el('a', {href: link(path)}, text);
  view.fill(el('div', {class: 'cards'},
    el('section', {class: 'card', 'aria-label': 'The engine'}, facts),
    card('two-thirds', 'Discarded, the last ten minutes', discardsNow, chart.node),
    card('third', 'Why', el('a', {href: link('statistics', {class: 'discard'})}, 'All reasons'), reasons),
    card('half', 'Interfaces', more('table/fwdif', 'All interfaces'), traffic),
    card('half fullest', 'Fullest tables', more('tables', 'All tables'), fullest),
    card('half', 'Findings', more('check', 'All findings'), wrong)));

  let samples = [];
  let curved = new Set();
  const overview = async () => identity(facts, await view.ask('overview', {}, {shown: true}));
  const history = async () => {
    samples = (await view.ask('history', {minutes: kSpan / 60})).samples;
    drawHistory(curves(samples));
  };
  const drawHistory = ({times, discards, interfaces}) => {
    const to = times.at(-1) ?? Date.now();
    const from = to - kSpan * 1000;
    // Of reasons that are alike the one that had a curve keeps it.
    const weight = ([name, values]) => sum(values) * (curved.has(name) ? 1.3 : 1);
    const ranked = [...discards].filter(([, values]) => sum(values)).sort((a, b) => weight(b) - weight(a));
    // Those that are alike stay in one order from sample to sample.
    const rank = ([, values]) => Math.round(Math.log2(sum(values)) * 6);
    const listed = [...ranked].sort((a, b) => rank(b) - rank(a) || a[0].localeCompare(b[0]));
    curved = new Set(ranked.slice(0, kCurves).map(([name]) => name));
    const top = ranked.slice(0, kCurves).sort(([a], [b]) => a.localeCompare(b));
    const rest = ranked.slice(kCurves);
    if (rest.length) top.push([`${rest.length} others`, times.map((_, i) => sum(rest.map(([, values]) => values[i])))]);
    chart.show(top.map(([name, values]) => ({name: shown(name), points: times.map((time, i) => [time, values[i]])})), from, to);
    const whole = sum(ranked.map(([, values]) => last(values)));
    discardsNow.textContent = times.length ? `now ${rate(whole)}` : 'the first sample is on its way';
    fill(reasons, ranked.length ? table({
      caption: 'Discarded packets by reason', hidden: true, head: ['Reason', {body: 'now', class: 'num'}, {body: '10 min', class: 'num'}],
      rows: listed.slice(0, 11).map(([name, values]) => [{body: el('a', {href: link('statistics', {pattern: name})}, shown(name))}, {body: rate(last(values)), class: 'num'}, {body: number(Math.round(total(times, values))), class: 'num'}]),
    }) : el('p', {class: 'empty'}, times.length ? 'Nothing is discarded.' : 'Nothing is known yet.'));
    const busiest = [...interfaces].map(([index, rates]) => [String(index), rates]).sort(([, a], [, b]) => sum(b.in_bytes) + sum(b.out_bytes) - sum(a.in_bytes) - sum(a.out_bytes)).slice(0, 12)
      .sort(([a], [b]) => a.localeCompare(b, 'en', {numeric: true}));
    fill(traffic, busiest.length ? table({
      caption: 'Rates of the busiest interfaces', hidden: true,
      head: ['Interface', 'In and out', {body: 'In', class: 'num'}, {body: 'Out', class: 'num'}, {body: 'Packets in', class: 'num'}, {body: 'out', class: 'num'}],
      rows: busiest.map(([name, rates]) => [
        {body: el('a', {class: 'mono', href: link('record/fwdif', {key: `if_index=${name}`})}, name)},
        {body: spark(rates.in_bytes.map((value, i) => (value === null ? null : value + rates.out_bytes[i])))},
        {body: bits(last(rates.in_bytes)), class: 'num'}, {body: bits(last(rates.out_bytes)), class: 'num'},
        {body: `${rate(last(rates.in_packets))}`, class: 'num quiet'}, {body: `${rate(last(rates.out_packets))}`, class: 'num quiet'}]),
    }) : el('p', {class: 'empty'}, 'No interface has counted anything yet.'));
  };

  const usage = async () => {
    const rows = (await view.ask('usage')).usage.filter(row => row.capacity > 1 && row.entries).slice(0, 12);
    const over = rows.filter(row => row.percent >= kWarn).length;
    fill(fullest, table({
      caption: over ? `${over} are more than ${kWarn} % full` : `none is more than ${kWarn} % full`, head: ['Table', {body: 'Entries', class: 'num'}, {body: 'Room for', class: 'num'}, {body: 'Full', class: 'num'}, ''],
      rows: rows.map(row => [{body: el('a', {class: 'mono', href: link(`table/${row.table}`)}, row.table), class: 'name'}, {body: number(row.entries), class: 'num'}, {body: number(row.capacity), class: 'num quiet'},
        {body: percent(row.percent), class: 'num'}, {body: meter(row.percent, `${row.table} full`), class: 'bar-cell'}]),
    }));
  };
  const check = async () => {
    const answer = await view.ask('check');
    view.findings(answer.count);
    const kinds = severity => answer.findings.filter(one => one.severity === severity).length;
    fill(wrong, answer.count ? findings(answer.findings.slice(0, 9), `${kinds('error')} errors, ${kinds('warning')} warnings${answer.count > 9 ? '; the first nine' : ''}`)
      : el('p', {class: 'empty good'}, '✓ Nothing is wrong.'));
  };
  // Every entry is looked at, which may take its time.
  fill(wrong, el('p', {class: 'empty waits'}, 'Looking …'));
  const each = (place, load) => load().catch(failure => {
    if (failure.name !== 'AbortError' && !view.over && (!place.hasChildNodes() || place.querySelector('.waits'))) fill(place, notice('warn', failure.title ?? 'It failed', failure.detail ?? failure.message));
  });
  await Promise.all([each(facts, overview), each(reasons, history), each(fullest, usage), each(wrong, check)]);
  view.every(10, overview);
  view.every(5, usage);
  view.every(60, check);
  view.on('sample', sample => {
    samples = join(samples, sample);
    if (!document.hidden) drawHistory(curves(samples));
  });
  // Samples come as events; those that were missed are in the history, which goes on only while somebody looks at it.
  view.every(30, history, {unseen: true});
}

// What rates over the samples' times come to.
function total(times, values) {
  let all = 0;
  for (let i = 1; i < times.length; i++) all += (values[i] ?? 0) * (times[i] - times[i - 1]) / 1000;
  return all;
}
