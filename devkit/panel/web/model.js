// The data model: the tree beside the parameters of one object, which are edited in place and
// travel together; search over all.

import {call, on} from './api.js';
import {field, freshId, h, outcome, put, refuse, say} from './dom.js';
import {ROOT, isLeaf, isRow, nameOf, parentOf, tree} from './tree.js';

const WAIT = 250; // ms without a key before a search

/* ---- fields that fit a type ---- */

const isSwitch = (node) => node.type === 'boolean';

function editor(node) {
  if (isSwitch(node)) return h('input', {type: 'checkbox', role: 'switch', class: 'switch'});
  if (node.values) return h('select', {}, node.values.split(',').map((each) => h('option', {value: each}, each || 'empty')));
  if (/^(int|unsignedInt)$/.test(node.type)) return h('input', {type: 'text', inputmode: 'numeric', class: 'numeric'});
  if ((node.value ?? '').length > 60 || /\n/.test(node.value ?? '')) return h('textarea', {rows: '3'});
  return h('input', {type: 'text', spellcheck: 'false', autocapitalize: 'off'});
}

const read = (node, input) => (isSwitch(node) ? (input.checked ? '1' : '0') : input.value);

function write(node, input, value) {
  if (isSwitch(node)) input.checked = value === '1' || value === 'true';
  else if (input.tagName === 'SELECT' && ![...input.options].some((option) => option.value === value))
    input.add(new Option(value, value), 0); // what the store has is never another text
  if (!isSwitch(node)) input.value = value;
}

/** What a value may be, in words. */
function range(node) {
  const unit = node.type === 'string' ? ' bytes' : '';
  if (node.values) return `one of ${node.values.split(',').map((each) => each || 'empty').join(', ')}`;
  if (node.check) return `form “${node.check}”`;
  if (node.min !== undefined && node.max !== undefined) return `${node.min} to ${node.max}${unit}`;
  if (node.min !== undefined) return `at least ${node.min}${unit}`;
  if (node.max !== undefined) return `at most ${node.max}${unit}`;
  return {boolean: '0 or 1', unsignedInt: 'from 0', string: 'any text'}[node.type] ?? '';
}

/* ---- one parameter ---- */

function parameter(node, changed) {
  const name = nameOf(node.path);
  const fixed = node.writable === '0';
  const input = fixed ? h('output', {class: 'value'}) : editor(node);
  input.id = freshId('leaf');
  const error = h('p', {class: 'error', id: `${input.id}-error`, hidden: true});
  const about = h('p', {class: 'about', id: `${input.id}-about`}, node.description ?? '');
  input.setAttribute('aria-describedby', `${about.id} ${error.id}`);
  const element = h('li', {class: fixed ? 'parameter fixed' : 'parameter', 'data-path': node.path},
    h('div', {class: 'what'}, h('label', {for: input.id, title: node.path}, name), about),
    h('div', {class: 'edit'}, input, error),
    h('p', {class: 'facts'}, h('span', {class: 'type'}, node.type), range(node) ? h('span', {}, range(node)) : null,
      fixed ? h('span', {}, 'read only') : null));
  const entry = {
    node, element, fixed, value: node.value ?? '',
    isChanged: () => !fixed && read(node, input) !== entry.value,
    text: () => read(node, input),
    refuse: (text) => refuse(input, error, text),
    focus: () => input.focus(),
    /** What the store has now; what was typed stays. */
    renew(value) {
      const typed = entry.isChanged();
      entry.value = value;
      if (fixed) {
        if (input.value !== value) input.value = value;
      } else if (!typed) {
        write(node, input, value);
      }
      entry.mark();
    },
    undo() {
      write(node, input, entry.value);
      entry.refuse('');
      entry.mark();
    },
    mark: () => element.classList.toggle('changed', entry.isChanged()),
  };
  if (fixed) input.value = entry.value;
  else write(node, input, entry.value);
  input.addEventListener('input', () => {
    entry.refuse('');
    entry.mark();
    changed();
  });
  return entry;
}

/* ---- one object ---- */

function details(go, renewTree) {
  const element = h('article', {class: 'details', 'aria-label': 'Parameters of the object'});
  const result = outcome();
  const title = h('h2', {class: 'path'});
  const meaning = h('p', {class: 'meaning'});
  const facts = h('dl', {class: 'node-facts'});
  const list = h('ul', {class: 'parameters'});
  const below = h('ul', {class: 'below'});
  const count = h('span', {});
  const apply = h('button', {type: 'submit', class: 'primary'}, 'Apply');
  const plan = h('button', {type: 'button', onclick: () => foresee(plan, ['set', ...changes().flatMap((each) => [each.node.path, each.text()])])}, 'Plan');
  const discard = h('button', {type: 'button', onclick: undo}, 'Discard');
  const bar = h('div', {class: 'bar', hidden: true}, count, discard, plan, apply);
  const addRow = h('button', {type: 'button', onclick: add}, 'Add a row');
  const deleteRow = h('button', {type: 'button', class: 'danger', onclick: remove}, 'Delete this row');
  const ask = h('button', {type: 'button', onclick: update}, 'Ask the module');
  const planRow = h('button', {type: 'button', onclick: () => foresee(planRow, [addRow.hidden ? 'del' : 'add', path])}, '');
  const form = h('form', {onsubmit: submit, novalidate: true}, list, bar);
  element.append(title, meaning, facts, h('div', {class: 'actions'}, ask, planRow, addRow, deleteRow), result.element, form, below);
  let path = '';
  let parameters = [];
  let sure = 0;

  const changes = () => parameters.filter((each) => each.isChanged());

  function changed() {
    const number = changes().length;
    bar.hidden = number === 0;
    say(count, number === 1 ? '1 change' : `${number} changes`);
  }

  function undo() {
    for (const each of parameters) each.undo();
    result.clear();
    changed();
  }

  function crumbs() {
    const names = path.split('.');
    put(title, names.map((name, i) => [i ? h('span', {class: 'dot-between'}, '.') : null, i === names.length - 1 ? h('span', {}, name)
      : h('a', {href: '#/model', onclick: (event) => { event.preventDefault(); go(names.slice(0, i + 1).join('.')); }}, name)]).flat());
  }

  function describe(node) {
    crumbs();
    say(meaning, node.description ?? '');
    const rows = [['type', isRow(node) ? 'row of an array' : node.type], ['module', node.mod], ['op function', node.op]];
    put(facts, rows.filter(([, value]) => value).map(([name, value]) => h('div', {}, h('dt', {}, name), h('dd', {}, value))));
    addRow.hidden = node.type !== 'array';
    deleteRow.hidden = !isRow(node);
    planRow.hidden = addRow.hidden && deleteRow.hidden;
    say(planRow, addRow.hidden ? 'Plan the deletion' : 'Plan a row');
    say(deleteRow, 'Delete this row');
    sure = 0;
  }

  async function show(wanted, leaf) {
    const reply = await call('nodes', {path: wanted});
    if (reply.status !== 0) return result.show(reply.text, false);
    if (path !== wanted) result.clear();
    path = wanted;
    describe(reply.node);
    parameters = reply.nodes.filter(isLeaf).map((node) => parameter(node, changed));
    put(list, parameters.map((each) => each.element));
    put(below, reply.nodes.filter((node) => !isLeaf(node)).slice(0, 200).map((node) =>
      h('li', {}, h('a', {href: '#/model', onclick: (event) => { event.preventDefault(); go(node.path); }}, nameOf(node.path)),
        h('span', {class: 'about'}, node.description ?? ''))));
    changed();
    const found = parameters.find((each) => each.node.path === leaf);
    if (found) {
      found.element.classList.add('found');
      found.element.scrollIntoView({block: 'center'});
      found.focus();
    }
  }

  /** The values of now, without touching what is typed. */
  async function renew() {
    if (path === '') return;
    const reply = await call('nodes', {path});
    if (reply.status !== 0) return result.show(reply.text, false);
    const leaves = reply.nodes.filter(isLeaf);
    for (const each of parameters) each.renew(leaves.find((node) => node.path === each.node.path)?.value ?? '');
    changed();
  }

  /** A refusal names its parameter in quotes: it stands beside that field. */
  function place(text) {
    const named = parameters.find((each) => text.includes(`"${each.node.path}"`)) ??
      (changes().length === 1 ? changes()[0] : undefined);
    if (!named) return false;
    named.refuse(text);
    named.focus();
    return true;
  }

  async function submit(event) {
    event.preventDefault();
    const sent = changes().map((each) => ({each, text: each.text()})); // more may be typed meanwhile
    if (sent.length === 0) return;
    apply.disabled = true;
    const reply = await call('set', {leaves: sent.flatMap(({each, text}) => [each.node.path, text])});
    apply.disabled = false;
    for (const each of parameters) each.refuse('');
    if (reply.status !== 0) return result.show(place(reply.text) ? 'Refused: the field says why.' : reply.text, false, reply.commands);
    result.show(reply.commands.length ? 'Done. It ran:' : 'Done. It ran no command.', true, reply.commands);
    for (const {each, text} of sent) each.value = text;
    await renew();
  }

  /** What the request would do. */
  async function foresee(pressed, words) {
    pressed.disabled = true;
    const reply = await call('plan', {words});
    pressed.disabled = false;
    for (const each of parameters) each.refuse('');
    const {commands = [], nodes = [], files = []} = reply.plan ?? {};
    const lines = commands.map(({line, answer_read: read}) => (read ? `${line} (whose answer is read: here it had none)` : line));
    const notes = [...nodes.map(({path: node, before, after}) => `${node}: ${after === undefined ? 'gone' : before === undefined ? `new, “${after}”` : `“${before}”, then “${after}”`}`),
      ...files.map(({path: file, change, bytes}) => `${file}: ${change}${bytes === undefined ? '' : `, ${bytes} bytes`}`)];
    if (reply.status !== 0) return result.show(place(reply.text) ? 'It would be refused: the field says why.' : reply.text, false, lines, notes);
    result.show(lines.length + notes.length ? 'It would run and change:' : 'It would change nothing.', true, lines, notes);
  }

  async function act(name, done) {
    const reply = await call(name, {path});
    result.show(reply.status === 0 ? done(reply) : reply.text, reply.status === 0, reply.commands);
    return reply.status === 0 ? reply : null;
  }

  async function update() {
    if (await act('refresh', () => 'The module brought the values up to date.')) await renew();
  }

  async function add() {
    const array = path;
    const reply = await act('add', ({path: made}) => `Added row ${nameOf(made)}.`);
    if (!reply) return;
    await renewTree(array);
    await go(reply.path);
    result.show(`Added row ${nameOf(reply.path)}.`, true, reply.commands);
  }

  /* The second press counts. */
  async function remove() {
    if (++sure < 2) return say(deleteRow, `Really delete row ${nameOf(path)}`);
    const array = parentOf(path);
    const reply = await act('delete', () => '');
    sure = 0;
    if (!reply) return say(deleteRow, 'Delete this row');
    const row = nameOf(path);
    await renewTree(array);
    await go(array);
    result.show(`Deleted row ${row}.`, true, reply.commands);
  }

  return {element, show, renew, path: () => path};
}

/* ---- search ---- */

function finder(go) {
  const {element: box, input} = field('Search', h('input', {type: 'search', spellcheck: 'false', autocapitalize: 'off',
    placeholder: 'Path, value, meaning, a*b'}));
  const said = h('p', {class: 'about', role: 'status'});
  const list = h('ul', {class: 'found-list'});
  const element = h('div', {class: 'finder', role: 'search'}, box, said, list);
  let timer = 0;
  let asked = 0;

  function result(node) {
    const object = isLeaf(node) ? parentOf(node.path) : node.path;
    return h('li', {}, h('a', {href: '#/model', onclick: (event) => { event.preventDefault(); go(object, node.path); }},
      h('span', {class: 'name'}, nameOf(node.path)),
      node.value ? h('span', {class: 'value'}, node.value.slice(0, 80)) : null,
      h('span', {class: 'where'}, parentOf(node.path).slice(ROOT.length + 1))));
  }

  async function search() {
    const text = input.value.trim();
    const mine = ++asked;
    element.classList.toggle('searching', text !== '');
    if (text === '') return put(list), say(said, '');
    const reply = await call('find', {text});
    if (mine !== asked) return; // another one is on its way
    if (reply.status !== 0) return put(list), say(said, reply.text);
    say(said, `${reply.nodes.length}${reply.more ? ' and more' : ''} found`);
    put(list, reply.nodes.map(result));
  }

  input.addEventListener('input', () => {
    clearTimeout(timer);
    timer = setTimeout(search, WAIT);
  });
  return element;
}

export function view(root) {
  const trees = tree((path) => pane.show(path));
  const pane = details(go, (path) => trees.refresh(path));
  async function go(path, leaf) {
    await trees.reveal(path);
    await pane.show(path, leaf);
  }
  root.append(h('div', {class: 'panes'},
    h('div', {class: 'side'}, finder(go), trees.element), pane.element));
  const again = async () => {
    await trees.begin();
    if (pane.path() === '') await pane.show(ROOT);
    else await pane.renew();
  };
  on('change', (event) => { if ((event.path ?? '').startsWith(pane.path())) pane.renew(); });
  again();
  return {again, go: (path) => go(path)};
}
