// The tree of objects, arrays and rows beside the parameters: made level by level as it is opened,
// with the keys that trees have.

import {call} from './api.js';
import {h, put, say} from './dom.js';

export const ROOT = 'InternetGatewayDevice';
const MOST = 200; // rows of an array that are shown at once

export const nameOf = (path) => path.slice(path.lastIndexOf('.') + 1);
export const parentOf = (path) => path.slice(0, Math.max(0, path.lastIndexOf('.')));
export const isLeaf = (node) => node.type !== 'object' && node.type !== 'array';
export const isRow = (node) => /\.\d+$/.test(node.path);

/** `select` is called with the path of an object that was chosen. */
export function tree(select) {
  const element = h('ul', {role: 'tree', 'aria-label': 'Objects of the data model', class: 'tree'});
  const items = new Map(); // path -> item
  let current = null;

  function item(node, level) {
    const group = h('ul', {role: 'group', hidden: true});
    const row = h('div', {class: 'row'}, h('span', {class: 'twist', 'aria-hidden': 'true'}),
      h('span', {class: isRow(node) ? 'name number' : 'name'}, nameOf(node.path)),
      node.type === 'array' ? h('span', {class: 'tag'}, 'rows') : null);
    const entry = {node, level, group, row, open: false, loaded: false};
    entry.element = h('li', {role: 'treeitem', tabindex: '-1', 'aria-level': level, 'aria-expanded': 'false',
      'aria-selected': 'false', 'aria-label': nameOf(node.path)}, row, group);
    row.addEventListener('click', (event) => {
      if (event.target.classList.contains('twist')) toggle(entry, !entry.open);
      else choose(entry, true);
    });
    items.set(node.path, entry);
    return entry;
  }

  function forget(path) {
    for (const each of items.keys()) if (each.startsWith(`${path}.`)) items.delete(each);
  }

  async function load(entry) {
    const reply = await call('nodes', {path: entry.node.path});
    if (reply.status !== 0) return reply;
    const children = reply.nodes.filter((node) => !isLeaf(node));
    const open = new Set([...items].filter(([, each]) => each.open).map(([path]) => path));
    forget(entry.node.path);
    const made = children.slice(0, MOST).map((node) => item(node, entry.level + 1));
    put(entry.group, made.map((each) => each.element),
      children.length > MOST ? h('li', {class: 'more'}, `${children.length - MOST} more: search for them`) : null);
    entry.loaded = true;
    for (const each of made) if (!each.node.below) each.element.removeAttribute('aria-expanded');
    entry.element.classList.toggle('empty', children.length === 0);
    if (children.length === 0) entry.element.removeAttribute('aria-expanded');
    await Promise.all(made.filter((each) => open.has(each.node.path)).map((each) => toggle(each, true)));
    if (current && items.has(current)) mark(current);
    return reply;
  }

  async function toggle(entry, open) {
    if (open && !entry.loaded && entry.node.below) await load(entry);
    entry.open = open && entry.group.children.length > 0;
    entry.group.hidden = !entry.open;
    if (entry.element.hasAttribute('aria-expanded')) entry.element.setAttribute('aria-expanded', String(entry.open));
  }

  function mark(path) {
    current = path;
    for (const [each, {element: li}] of items) {
      li.setAttribute('aria-selected', String(each === path));
      li.tabIndex = each === path ? 0 : -1;
    }
  }

  function choose(entry, open) {
    mark(entry.node.path);
    if (open) toggle(entry, true);
    select(entry.node.path);
  }

  const seen = () => [...element.querySelectorAll('[role=treeitem]')].filter((li) => li.offsetParent !== null);

  function step(entry, by) {
    const list = seen();
    const next = list[list.indexOf(entry.element) + by];
    if (next) next.focus();
  }

  const keys = {
    ArrowDown: (entry) => step(entry, 1),
    ArrowUp: (entry) => step(entry, -1),
    ArrowRight: (entry) => (entry.open ? step(entry, 1) : entry.node.below && toggle(entry, true)),
    ArrowLeft: (entry) => (entry.open ? toggle(entry, false) : items.get(parentOf(entry.node.path))?.element.focus()),
    Home: () => seen()[0]?.focus(),
    End: () => seen().at(-1)?.focus(),
    Enter: (entry) => choose(entry, true),
    ' ': (entry) => choose(entry, true),
  };
  element.addEventListener('keydown', (event) => {
    const li = event.target.closest('[role=treeitem]');
    const entry = [...items.values()].find((each) => each.element === li);
    if (!entry || !keys[event.key] || event.ctrlKey || event.altKey || event.metaKey) return;
    event.preventDefault();
    keys[event.key](entry);
  });

  /** Opens all above a path, marks and shows it. */
  async function reveal(path) {
    const names = path.split('.');
    for (let i = 1; i < names.length; ++i) {
      const above = items.get(names.slice(0, i).join('.'));
      if (above) await toggle(above, true);
    }
    if (!items.has(path)) return;
    mark(path);
    items.get(path).row.scrollIntoView({block: 'nearest'});
  }

  /** Loads again what stands below a path. */
  async function refresh(path) {
    const entry = items.get(path);
    if (!entry?.loaded) return;
    await load(entry);
    await toggle(entry, true);
  }

  async function begin() {
    if (items.has(ROOT)) return refresh(ROOT);
    const root = item({path: ROOT, type: 'object', below: true}, 1);
    const reply = await load(root);
    if (reply.status !== 0) {
      items.clear();
      return say(element, reply.text);
    }
    put(element, root.element);
    await toggle(root, true);
    mark(ROOT);
  }

  return {element, begin, reveal, refresh};
}
