// A firmware download: an image on the server, the order, and what becomes of it step by step.

import {call, on} from './api.js';
import {field, h, outcome, put, say} from './dom.js';
import {nameOf} from './tree.js';

const ORDER = 'InternetGatewayDevice.X_TR69_Transfer.X_KVO_Download';
const LOOK = 400; // ms, while an order runs
const PATIENCE = 120000; // ms until the page looks no more
const BEHAVIOURS = [
  ['normal', 'checks and flashes', ''], ['slow', 'is slow', 'Polls'], ['occupied', 'is occupied', ''], ['reject', 'refuses the image', ''],
  ['fail', 'cannot flash', ''], ['hang', 'hangs', ''], ['die', 'dies', 'Polls before'],
];

const STEPS = [
  {name: 'Order', about: 'the parameters are set'},
  {name: 'Fetch', about: 'curl gets the image'},
  {name: 'Check', about: 'the version manager checks it'},
  {name: 'Flash', about: 'the new image takes the old one’s place'},
  {name: 'Reboot', about: 'three seconds later'},
];

/** How far an order is: {at: the step that is at work, ended: '' | 'done' | 'failed'}. */
export function progress({lines, order, fault}) {
  const has = (pattern) => lines.some((line) => pattern.test(line));
  if (fault && fault !== '0') return {at: order === '' ? 1 : order === 'upg_failed' ? 3 : 2, ended: 'failed'};
  if (has(/(^|\/| )reboot( |$|;|&)/)) return {at: 4, ended: 'done'};
  if (order === 'success' || fault === '0') return {at: 4, ended: ''};
  if (order === 'downloaded') return {at: 3, ended: ''};
  if (order !== '') return {at: 2, ended: ''};
  return {at: 1, ended: ''};
}

export function view(root) {
  const name = field('File on the server', h('input', {type: 'text', value: 'fw.bin', spellcheck: 'false'}));
  const text = field('What the image holds', h('input', {type: 'text', value: 'firmware 2.3.2'}));
  const damaged = h('input', {type: 'checkbox', id: 'damaged', class: 'switch', role: 'switch'});
  const password = field('Password that the order gives', h('input', {type: 'text', value: 'desk', spellcheck: 'false'}));
  const said = outcome();
  const start = h('button', {type: 'submit', class: 'primary'}, 'Order the download');
  const steps = STEPS.map(({name: title, about}, i) => {
    const state = h('span', {class: 'words'});
    return {state, element: h('li', {class: 'step'}, h('span', {class: 'step-mark', 'aria-hidden': 'true'}, String(i + 1)), h('div', {}, h('strong', {}, title), state, h('p', {class: 'about'}, about)))};
  });
  const facts = h('dl', {class: 'node-facts column'});
  const how = field('The version manager', h('select', {}, BEHAVIOURS.map(([value, words]) => h('option', {value}, words))));
  const amount = field('Polls', h('input', {type: 'text', inputmode: 'numeric', value: '20'}), {hidden: true});
  const behaved = outcome();
  let order = null; // the one that is watched
  let lines = [];

  const order_form = h('form', {class: 'card stack', onsubmit: submit}, h('h2', {}, 'Order'), name.element, text.element,
    h('div', {class: 'line'}, damaged, h('label', {for: 'damaged'}, 'The image is damaged')), password.element,
    h('div', {class: 'actions'}, start), said.element);
  const manager_form = h('form', {class: 'card stack', onsubmit: behave}, h('h2', {}, 'Version manager'), how.element, amount.element,
    h('div', {class: 'actions'}, h('button', {type: 'submit'}, 'Behave so')), behaved.element);
  root.append(h('section', {class: 'card'}, h('h2', {}, 'Progress'), h('ol', {class: 'steps'}, steps.map((step) => step.element)), facts),
    h('div', {class: 'two'}, order_form, manager_form));

  how.input.addEventListener('change', () => {
    const words = BEHAVIOURS.find(([value]) => value === how.input.value)[2];
    amount.element.hidden = words === '';
    say(amount.element.querySelector('label'), words);
  });
  async function behave(event) {
    event.preventDefault();
    const reply = await call('vermgt', {verb: 'behave', how: how.input.value, amount: amount.element.hidden ? 0 : Number(amount.input.value)});
    behaved.show(reply.status === 0 ? 'Done.' : reply.text, reply.status === 0);
    look();
  }

  function draw(now) {
    steps.forEach(({element, state}, i) => {
      const word = !now ? '' : i < now.at || now.ended === 'done' ? 'done' : i > now.at ? '' : now.ended === 'failed' ? 'failed' : 'at work';
      element.className = `step ${word.replace(' ', '-')}`;
      say(state, word ? `, ${word}` : '');
      if (word === 'at work' || word === 'failed') element.setAttribute('aria-current', 'step');
      else element.removeAttribute('aria-current');
    });
  }

  async function look() {
    const [manager, leaves] = await Promise.all([call('vermgt', {verb: 'state'}), call('nodes', {path: ORDER})]);
    const value = (leaf) => leaves.nodes?.find((node) => nameOf(node.path) === leaf)?.value ?? '';
    const state = manager.state;
    const rows = [['behaviour', state ? `${state.behaviour}${state.amount ? ` ${state.amount}` : ''}` : manager.text],
      ['last order', state?.name ? `${state.name}: ${state.word} after ${state.polls} polls` : 'none'],
      ['flashed', state?.flashed ? `${state.flashed.bytes} bytes, sha256 ${state.flashed.sha256.slice(0, 16)}…` : 'nothing'],
      ['started', value('StartTime')], ['ended', value('CompleteTime')], ['fault', [value('FaultCode'), value('FaultString')].filter(Boolean).join(' ')]];
    put(facts, rows.filter(([, words]) => words).map(([title, words]) => h('div', {}, h('dt', {}, title), h('dd', {}, words))));
    if (!order) return;
    const mine = state?.name && (state.name !== order.before.name || state.word !== order.before.word || state.polls !== order.before.polls) ? state.word : order.seen;
    order.seen = mine;
    const now = progress({lines, order: mine, fault: value('FaultCode')});
    draw(now);
    if (now.ended || performance.now() - order.since > PATIENCE) {
      order = null;
      start.disabled = false;
      said.show(now.ended === 'done' ? 'Flashed; the gateway would boot now.' : value('FaultString') || 'It did not end well.', now.ended === 'done', lines.slice(-12));
    } else {
      setTimeout(look, LOOK);
    }
  }

  async function submit(event) {
    event.preventDefault();
    const file = name.input.value;
    const image = await call('image', {name: file, text: text.input.value, damaged: damaged.checked});
    if (image.status !== 0) return said.show(image.text, false);
    const before = (await call('vermgt', {verb: 'state'})).state ?? {};
    lines = [];
    const leaf = (each, value) => [`${ORDER}.${each}`, value];
    const reply = await call('set', {leaves: [...leaf('URL', `http://127.0.0.1/digest/${file}`), ...leaf('Username', 'desk'),
      ...leaf('Password', password.input.value), ...leaf('CommandKey', `panel ${Date.now() % 100000}`), ...leaf('FileType', '1 Firmware Upgrade Image')]});
    said.show(reply.status === 0 ? 'Ordered.' : reply.text, reply.status === 0, reply.commands);
    if (reply.status !== 0) return;
    start.disabled = true;
    order = {before, seen: '', since: performance.now()};
    draw({at: 1, ended: ''});
    look();
  }

  on('command', ({line}) => {
    if (!order) return;
    lines.push(line);
    if (lines.length > 100) lines.shift();
  });
  look();
  return {again: look, shown: (now) => { if (now && !order) look(); }};
}
