// Requests as they pass, and of the chosen one who did what when.

import {on} from './api.js';
import {h, put, s, say, short} from './dom.js';
import {ROOT} from './tree.js';

const KEPT = 300; // requests in the list
const DRAWN = 24; // command lines in the picture
const LANE = 150;
const STEP = 30;

const bare = (path) => (path.startsWith(`${ROOT}.`) ? path.slice(ROOT.length + 1) : path);
const isModem = (line) => /\b(at-mngr|nanocom|sms_getmsg\.sh)\b/.test(line);
const clientOf = ({client, pid}) => (pid ? `${client}[${pid}]` : client || 'client');
const clip = (text, most) => (text.length > most ? `${text.slice(0, most - 1)}…` : text);

/** What happened in order: {at, from, to, text}, lanes by number; `at` is undefined where no clock was read. */
export function stepsOf(record) {
  const {queued_ms: queued, module_ms: module, total_ms: total} = record;
  const end = queued === undefined ? undefined : queued + module;
  const commands = record.commands ?? [];
  const reached = record.module && (queued !== undefined || record.result === 'done' || commands.length > 0);
  const steps = [{at: 0, from: 0, to: 1, text: record.command}];
  if (reached) steps.push({at: queued, from: 1, to: 2, text: record.op || record.command});
  for (const {line, at_ms: at, took_ms: took} of commands.slice(0, DRAWN)) {
    steps.push({at, from: 2, to: 3, text: line});
    if (isModem(line)) steps.push({at, from: 3, to: 4, text: 'AT commands'});
    if (typeof took === 'number') steps.push({at: at + took, from: isModem(line) ? 4 : 3, to: 2, text: `${short(took)} ms`, back: true});
  }
  if (commands.length > DRAWN) steps.push({at: undefined, from: 2, to: 3, text: `${commands.length - DRAWN} more`});
  if (reached) steps.push({at: end, from: 2, to: 1, text: record.result, back: true});
  return [...steps, {at: total, from: 1, to: 0, text: record.result, back: true}];
}

const timeOf = (at) => (typeof at === 'number' ? `${short(at)} ms` : '');

function picture(record) {
  const steps = stepsOf(record);
  const lanes = [clientOf(record), 'dbmgr', record.module || 'store', 'shell', 'modem'].slice(0, Math.max(2, ...steps.map(({from, to}) => Math.max(from, to) + 1)));
  const height = 50 + steps.length * STEP;
  const left = 70;
  const x = (lane) => left + 50 + lane * LANE;
  const width = x(lanes.length - 1) + 90;
  const said = steps.map(({at, from, to, text}) => `${timeOf(at)} ${lanes[from]} to ${lanes[to]}: ${text}`).join('; ');
  return s('svg', {viewBox: `0 0 ${width} ${height}`, width: String(width), height: String(height), class: 'sequence', role: 'img', 'aria-label': said},
    lanes.map((name, i) => [s('text', {x: String(x(i)), y: '16', class: 'lane-name'}, clip(name, 20)), s('line', {x1: String(x(i)), x2: String(x(i)), y1: '24', y2: String(height - 8), class: 'lane'})]).flat(),
    steps.map(({at, from, to, text, back}, i) => {
      const y = 50 + i * STEP;
      const way = to > from ? 1 : -1;
      return s('g', {class: back ? 'arrow back' : 'arrow'}, s('text', {x: '0', y: String(y + 4), class: 'at'}, timeOf(at)),
        s('line', {x1: String(x(from)), x2: String(x(to) - way * 7), y1: String(y), y2: String(y)}),
        s('path', {d: `M${x(to) - way} ${y}l${-way * 8} -4v8z`}),
        s('text', {x: String((x(from) + x(to)) / 2), y: String(y - 6), class: 'words-on'}, s('title', {}, text), clip(text, Math.abs(to - from) * 20)));
    }));
}

/* The list is kept from the start of the page, whether it is looked at or not. */
const list = {kept: [], total: 0, paused: false, changed: () => {}};
function add(record) {
  ++list.total;
  if (list.paused) return;
  list.kept.unshift(record);
  if (list.kept.length > KEPT) list.kept.pop();
  list.changed();
}
on('request', add);
on('notification', ({time, publisher, id, text}) => add({time, client: publisher, command: 'notify', path: text, op: id, result: 'done'}));
on('missed', ({count}) => {
  list.total += count;
  list.changed();
});

export function view(root) {
  const filter = h('input', {type: 'search', 'aria-label': 'Show requests that have this text', placeholder: 'Filter', spellcheck: 'false'});
  const pause = h('button', {type: 'button', 'aria-pressed': 'false', onclick: () => { list.paused = !list.paused; pause.setAttribute('aria-pressed', String(list.paused)); soon(); }}, 'Pause');
  const clear = h('button', {type: 'button', onclick: () => { list.kept = []; draw(); }}, 'Clear');
  const count = h('span', {class: 'about', role: 'status'});
  const body = h('tbody', {});
  const detail = h('div', {class: 'request-detail'}, h('p', {class: 'about'}, 'Choose a request to see its way.'));
  root.append(
    h('section', {class: 'card'}, h('div', {class: 'line wrap list-tools'}, filter, pause, clear, count),
      h('div', {class: 'scroll requests-list', tabindex: '0', 'aria-label': 'Requests, the newest first'}, h('table', {class: 'requests-table'},
        h('thead', {}, h('tr', {}, ['Time', 'Client', 'Request', 'Path', 'Module', 'Op function', 'Result', 'ms'].map((head) => h('th', {scope: 'col'}, head)))), body))),
    h('section', {class: 'card'}, h('h2', {}, 'Its way'), detail));
  let stale = 0;
  let chosen = null;
  let visible = true;

  function choose(record) {
    chosen = record;
    const values = (record.leaves ?? []).map(({path, before, after}) => h('li', {}, h('code', {}, bare(path)), ` was “${before}”, is “${after}”`));
    put(detail, h('h3', {class: 'path'}, `${record.command} ${record.path}`), record.text ? h('p', {class: record.result === 'done' ? 'about' : 'error'}, record.text) : null,
      h('div', {class: 'scroll', tabindex: '0', 'aria-label': 'Picture of its way'}, picture(record)), values.length ? h('ul', {class: 'before'}, values) : null,
      (record.commands ?? []).length ? h('ol', {class: 'commands', 'aria-label': 'Command lines'}, record.commands.slice(0, 100).map(({line, unsure}) => h('li', {}, h('code', {}, line), unsure ? ' or of another request' : null))) : null);
    draw();
  }

  function row(record) {
    const open = () => choose(record);
    return h('tr', {class: record === chosen ? 'chosen' : '', onclick: open}, h('td', {class: 'mono'}, (record.time ?? '').slice(11, 23)), h('td', {}, clientOf(record)),
      h('td', {}, h('button', {type: 'button', class: 'link', 'aria-pressed': String(record === chosen)}, record.command)),
      h('td', {class: 'mono path-cell', title: record.path}, bare(record.path ?? '')), h('td', {}, record.module ?? ''), h('td', {}, record.op ?? ''),
      h('td', {}, h('span', {class: `result ${record.result === 'done' ? 'good' : 'bad'}`}, record.result)), h('td', {class: 'mono number'}, short(record.total_ms ?? 0)));
  }

  function draw() {
    const text = filter.value.toLowerCase();
    const fits = (record) => !text || [record.client, record.command, record.path, record.module, record.op, record.result, record.text].some((each) => (each ?? '').toLowerCase().includes(text));
    const rows = list.kept.filter(fits).slice(0, 100);
    const at = [...body.querySelectorAll('button')].indexOf(document.activeElement);
    put(body, rows.map(row));
    if (at >= 0) body.querySelectorAll('button')[at]?.focus({preventScroll: true});
    say(count, `${list.total} seen, the last ${Math.min(list.kept.length, KEPT)} kept${list.paused ? ', paused' : ''}`);
  }
  function soon() {
    if (!visible || stale) return;
    stale = setTimeout(() => { stale = 0; draw(); }, 200);
  }
  filter.addEventListener('input', soon);
  list.changed = soon;
  draw();
  return {shown(now) { visible = now; if (now) soon(); }};
}
