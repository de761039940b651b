// Elements from texts. Values come from strangers, so texts become text nodes and nothing else:
// nobody in this folder writes markup from a value.

const SVG = 'http://www.w3.org/2000/svg';

function fill(element, attributes, children) {
  for (const [name, value] of Object.entries(attributes ?? {})) {
    if (value === undefined || value === null || value === false) continue;
    if (name.startsWith('on')) element.addEventListener(name.slice(2), value);
    else element.setAttribute(name, value === true ? '' : value);
  }
  element.append(...children.flat().filter((child) => child !== null && child !== undefined));
  return element;
}

export const h = (tag, attributes, ...children) =>
  fill(document.createElement(tag), attributes, children);

export const s = (tag, attributes, ...children) =>
  fill(document.createElementNS(SVG, tag), attributes, children);

/** Replaces what is in `element`. */
export function put(element, ...children) {
  element.replaceChildren(...children.flat().filter((child) => child !== null && child !== undefined));
  return element;
}

const FOCUSABLE = 'a, button, input, select, textarea';

/** As put, and the field or button of the same place keeps the focus. */
export function renew(element, ...children) {
  const at = [...element.querySelectorAll(FOCUSABLE)].indexOf(document.activeElement);
  put(element, ...children);
  if (at >= 0) element.querySelectorAll(FOCUSABLE)[at]?.focus({preventScroll: true});
}

/** Sets a text only when it differs, so that screen readers hear of changes alone. */
export function say(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

let names = 0;
/** An id for a label's field. */
export const freshId = (what) => `${what}-${++names}`;

/** A labelled field: the label, the field, and the place for what is wrong with it. */
export function field(label, input, attributes = {}) {
  input.id ||= freshId('field');
  const error = h('p', {class: 'error', id: `${input.id}-error`, hidden: true});
  input.setAttribute('aria-describedby', error.id);
  const element = h('div', {class: 'field', ...attributes}, h('label', {for: input.id}, label), input, error);
  return {element, input, refuse: (text) => refuse(input, error, text)};
}

/** Shows beside a field what it needs; '' takes that away. */
export function refuse(input, error, text) {
  say(error, text);
  error.hidden = text === '';
  if (text === '') input.removeAttribute('aria-invalid');
  else input.setAttribute('aria-invalid', 'true');
}

/** What a request came to: a line, the command lines that it caused, and what else there is to list. */
export function outcome() {
  const line = h('p', {class: 'said'});
  const list = h('ol', {class: 'commands', 'aria-label': 'Command lines'});
  const element = h('section', {class: 'outcome', role: 'status', 'aria-live': 'polite', hidden: true}, line, list);
  return {
    element,
    clear() { element.hidden = true; },
    show(text, good, commands = [], notes = []) {
      element.hidden = false;
      element.classList.toggle('bad', !good);
      say(line, text);
      put(list, [...commands.map((command) => h('li', {}, h('code', {}, command))), ...notes.map((note) => h('li', {class: 'note'}, note))]);
      list.hidden = list.children.length === 0;
      list.tabIndex = list.children.length > 6 ? 0 : -1; // only what scrolls
    },
  };
}

export const icon = (path) =>
  s('svg', {viewBox: '0 0 24 24', class: 'icon', 'aria-hidden': 'true'}, s('path', {d: path}));

/** A number with few digits: 0.25, 3.1, 120. */
export const short = (number) =>
  number >= 100 ? String(Math.round(number)) : number >= 1 ? number.toFixed(1) : number.toFixed(2);
