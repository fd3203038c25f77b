// What an engine can be told to end or to count anew. Nothing is done before what would be done was seen and agreed to.
import {change} from '../lib/api.js';
import {el, fill, say, shown} from '../lib/dom.js';
import {number} from '../lib/format.js';
import {dialog} from '../lib/keys.js';
import {kinds} from '../lib/reset_words.js';
import {rewrite} from '../lib/route.js';
import {copy, notice} from '../lib/view.js';

const quoted = text => (/^[\w.:*\/=-]+$/.test(text) ? text : `'${text.replaceAll("'", "'\\''")}'`);

// Asks before something is done; resolves to whether it may be.
function agree(title, words, text, does) {
  return new Promise(done => {
    let agreed = false;
    const yes = el('button', {type: 'button', class: 'danger'}, does);
    const no = el('button', {type: 'button', autofocus: true}, 'Leave it');
    const box = dialog(title, el('p', {class: 'tools'}, words), text ? el('pre', {class: 'text listed', tabindex: 0, 'aria-label': 'What would end'}, shown(text)) : null,
      el('div', {class: 'row'}, no, yes));
    yes.addEventListener('click', () => { agreed = true; box.close(); });
    no.addEventListener('click', () => box.close());
    box.addEventListener('close', () => done(agreed));
  });
}

export default async function draw(view) {
  view.title('Resets', 'Ends sessions and server maps, or sets counters to 0. What would end is shown first.');
  const engine = view.engine();
  const tool = engine ? `nqecli --arena ${quoted(engine.path)}` : 'nqecli';
  const told = el('div');
  const now = new Map();

  const load = async () => {
    const {tables} = await view.ask('tables', {}, {shown: true});
    for (const [name, place] of now) {
      const row = tables.find(one => one.name === name);
      place.textContent = row ? `${number(row.entries)} in the table now` : '';
    }
  };
  // One at a time, and what came of it above all.
  const act = async (button, work) => {
    button.disabled = true;
    try {
      const [title, detail] = await work() ?? [];
      if (title) {
        fill(told, notice('good', title, detail));
        say(title);
        await load();
      }
    } catch (failure) {
      if (failure.name === 'AbortError') return;
      fill(told, notice(failure.status === 403 ? 'warn' : 'bad', failure.title ?? 'The page failed here', failure.detail ?? failure.message));
    } finally {
      button.disabled = false;
    }
  };
  const remark = document => document.text.trimEnd().split('\n').at(-1);

  const card = kind => {
    const asked = view.params.get('what') === kind.what;
    const inputs = kind.conditions.map(one => {
      const attributes = {name: one.word, id: `${kind.what}-${one.word}`, value: asked ? view.params.get(one.word) ?? '' : ''};
      const input = one.choices ? el('select', attributes, el('option', {value: ''}, one.none ?? 'any'), one.choices.map(choice => el('option', {value: choice}, choice)))
        : el('input', {...attributes, placeholder: `e.g. ${one.example}`, autocomplete: 'off', spellcheck: 'false'});
      return [one, input];
    });
    const chosen = () => inputs.filter(([, input]) => input.value.trim()).map(([one, input]) => [one.word, input.value.trim()]);
    const command = el('pre', {tabindex: 0, 'aria-label': `Command that ends these ${kind.one}s`});
    const tell = () => { command.textContent = [tool, 'agent', `reset-${kind.what}`, ...chosen().map(([word, value]) => quoted(`${word}=${value}`))].join(' '); };
    const submit = el('button', {type: 'submit', class: 'main'}, 'Show what would end …');
    const copied = el('button', {type: 'button', onclick: () => copy(command.textContent, copied)}, 'Copy');
    const form = el('form', {class: `card ${kind.wide ? 'two-thirds' : ''}`, 'aria-label': `${kind.name} to end`},
      el('header', {}, el('h2', {}, kind.name), now.set(kind.table, el('span', {class: 'quiet'})).get(kind.table)),
      el('fieldset', {}, el('div', {class: 'fields'}, inputs.map(([one, input]) => el('div', {class: 'field', title: one.about}, el('label', {for: input.id}, one.name), input)))),
      el('div', {class: 'row tools'}, submit), el('header', {}, el('span', {class: 'quiet'}, 'the same as a command'), copied), command);
    form.addEventListener('input', () => {
      tell();
      rewrite('reset', {what: kind.what, ...Object.fromEntries(chosen())});
    });
    form.addEventListener('submit', event => {
      event.preventDefault();
      void act(submit, async () => {
        const body = {what: kind.what, ...Object.fromEntries(chosen())};
        const {document: would} = await change('reset', {...body, dry_run: true});
        const count = remark(would);
        if (view.over) return null;
        if (/^0 /.test(count)) return ['Nothing fits', `${count}: no ${kind.one} fits the conditions.`];
        const all = chosen().length ? '' : ` There is no condition: that is every ${kind.one}.`;
        if (!await agree(`End ${kind.name.toLowerCase()}?`, `${count} in ${engine?.name ?? 'the engine'}.${all}`, would.text.slice(0, would.text.trimEnd().lastIndexOf('\n') + 1), 'End them')) return null;
        const {document: done} = await change('reset', body);
        return [`${kind.name}: ${remark(done)}`, ''];
      });
    });
    tell();
    return form;
  };

  const clear = el('button', {type: 'button', class: 'main'}, 'Set them to 0 …');
  clear.addEventListener('click', () => void act(clear, async () => {
    if (!await agree('Set the counters to 0?', `What the control plane’s rate limits have let pass and dropped in ${engine?.name ?? 'the engine'} is counted from 0 on. The figures until now are gone.`, '', 'Set to 0')) return null;
    const {document: done} = await change('reset', {what: 'cpcar'});
    return ['The counters begin anew', done.text.trim()];
  }));
  const counters = el('section', {class: 'card', 'aria-label': 'Counters of the control plane’s rate limits'},
    el('header', {}, el('h2', {}, 'Rate limits’ counters'), now.set('cpcar_pro', el('span', {class: 'quiet'})).get('cpcar_pro')),
    el('p', {class: 'tools'}, 'Passed and dropped packets of each protocol to the control plane. Metrics see the fall as a restart of the counters.'),
    el('div', {class: 'row tools'}, clear), el('pre', {}, `${tool} diag clear cpcar status`));
  const [sessions, ...others] = kinds.map(card);
  view.fill(told, el('div', {class: 'cards'}, sessions, el('div', {class: 'cards stack third'}, others, counters)));
  if (view.params.get('what') === kinds[1].what) others[0].scrollIntoView({block: 'nearest'});
  if (!view.changes()) {
    view.place.querySelectorAll('button.main').forEach(button => { button.disabled = true; });
    fill(told, notice('info', 'This console only shows', 'nqeweb was started without --allow-changes. The forms make the commands for nqecli all the same.'));
  }
  await load();
}
