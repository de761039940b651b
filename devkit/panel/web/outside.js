// The gateway from outside: its lamps, its keys, and what is plugged in.

import {call, on} from './api.js';
import {field, h, outcome, put, renew, s, say} from './dom.js';
import {nameOf, parentOf} from './tree.js';

const SHOWN = 8; // lines of what happened

/* ---- lamps ---- */

const PURPOSE = {
  internet_wan: {title: 'Internet', on: (words) => words.startsWith('on'), text: (words) => words.split(' ')[0]},
  voip_select: {title: 'Voice', on: () => true, text: (words) => (words === 'low' ? 'over IP' : 'over the modem')},
};

function lamp(title, state, text, from) {
  return h('li', {class: `lamp ${state}`, title: from},
    h('span', {class: 'bulb', 'aria-hidden': 'true'}), h('span', {class: 'name'}, title), h('span', {class: 'state'}, text));
}

function lamps(processes, switched, attached) {
  const made = Object.entries(switched).map(([name, words]) => {
    const {title, on: lit, text} = PURPOSE[name] ?? {title: name, on: (each) => !/\b(off|low|0)\b/.test(each), text: (each) => each};
    return lamp(title, lit(words) ? 'on' : 'off', text(words), `led.sh ${name} ${words}`);
  });
  return [
    lamp('Power', processes.sysmgr ? 'on' : 'alarm', processes.sysmgr ? 'on' : 'no daemon', 'whether sysmgr runs'),
    ...made,
    lamp('LTE', attached ? 'on' : 'off', attached ? 'plugged in' : 'no stick', 'the modem'),
  ];
}

/* ---- keys ---- */

/** "RESET_FACTORY_CLEAN": "Factory clean". */
function words(name) {
  const text = name.replace(/^RESET_/, '').replace(/_INIT$/, '').replace(/_/g, ' ');
  return text.length > 3 ? text[0] + text.slice(1).toLowerCase() : text;
}

/** What a press of so many seconds fires: on press once the time is there, on release between two times. */
export function fires(records, seconds) {
  return records.filter((record) =>
    seconds >= record.trigger && (record.on_press || record.abandon <= 0 || seconds < record.abandon));
}

function key(records, done) {
  const line = records[0].line;
  const title = /WPS/.test(records[0].name) ? 'WPS' : 'Reset';
  const most = Math.max(...records.map((record) => record.trigger)) + 1;
  const meter = h('meter', {min: '0', max: String(most), value: '0', 'aria-label': `How long ${title} is held`});
  const held = h('span', {class: 'held', 'aria-live': 'off'}, 'Press and hold');
  let since = 0;
  let fired = new Set();
  let timer = 0;

  async function fire(record) {
    if (fired.has(record)) return;
    fired.add(record);
    const reply = await call('press', {event: record.event});
    done(reply.status === 0 ? `${title}: ${words(record.name)}` : reply.text, reply.status === 0);
  }

  const seconds = () => (performance.now() - since) / 1000;

  function look() {
    meter.value = seconds();
    say(held, `${seconds().toFixed(1)} s`);
    for (const record of records) if (record.on_press && seconds() >= record.trigger) fire(record);
  }

  function down() {
    if (since) return;
    since = performance.now();
    fired = new Set();
    timer = setInterval(look, 50);
    button.classList.add('down');
  }

  async function release(after) {
    clearInterval(timer);
    button.classList.remove('down');
    since = 0;
    meter.value = 0;
    say(held, 'Press and hold');
    const all = fires(records, after);
    for (const record of all) await fire(record);
    if (fired.size === 0) done(`${title}, ${after.toFixed(1)} s: the driver reports nothing`, true);
  }
  const up = () => { if (since) release(seconds()); };

  const button = h('button', {type: 'button', class: 'key', 'aria-label': `Key ${title}: hold it`,
    onpointerdown: (event) => { button.setPointerCapture(event.pointerId); down(); }, onpointerup: up, onpointercancel: up,
    onkeydown: (event) => { if (event.key === ' ' || event.key === 'Enter') { event.preventDefault(); down(); } },
    onkeyup: (event) => { if (event.key === ' ' || event.key === 'Enter') up(); }, onblur: up}, title);
  const times = [...new Set(records.map((record) => record.trigger))].sort((a, b) => a - b);
  const select = h('select', {}, times.map((time) => h('option', {value: String(time)}, `${time} s`)));
  const {element: at} = field('Held for', select);
  const now = h('button', {type: 'button', onclick: () => { fired = new Set(); release(Number(select.value)); }}, 'Press');
  return h('section', {class: 'key-box', 'aria-label': `Key ${title}`}, h('div', {class: 'key-top'}, button, h('div', {}, held, meter)),
    h('ul', {class: 'marks'}, records.map((record) => h('li', {}, h('strong', {}, words(record.name)),
      record.on_press ? ` while it is held, at ${record.trigger} s`
        : ` when let go after ${record.trigger} s${record.abandon > 0 ? ` and before ${record.abandon} s` : ''}`))),
    h('div', {class: 'at-once'}, at, now), h('p', {class: 'about'}, `GPIO line ${line}`));
}

/* ---- what is plugged in ---- */

const PLUGS = {
  lan: 'M5 6h14v12H5zM9 18v-4h6v4M8.5 6v3M11 6v3M13 6v3M15.5 6v3',
  wan: 'M12 3a9 9 0 1 0 0 18 9 9 0 0 0 0-18M3 12h18M12 3c3 3 3 15 0 18M12 3c-3 3-3 15 0 18',
  phone: 'M6 4h4l1.5 4-2 1.5a11 11 0 0 0 5 5l1.5-2 4 1.5v4c0 1-1 2-2 2C10 20 4 13 4 6c0-1 1-2 2-2',
  usb: 'M12 21V5M9 8l3-4 3 4M12 16l-4-3v-3M12 18l4-3v-4M7 8.5h2v2H7zM15 9h2v2h-2z',
  lte: 'M5 20v-4M10 20v-8M15 20V8M20 20V4',
};

function port(kind, title, state, text, button) {
  const socket = h('li', {class: `socket ${state}`}, s('svg', {viewBox: '0 0 24 24', class: 'icon'}, s('path', {d: PLUGS[kind]})), h('span', {}, title));
  const row = h('li', {class: `port ${state}`}, s('svg', {viewBox: '0 0 24 24', class: 'icon plug', 'aria-hidden': 'true'}, s('path', {d: PLUGS[kind]})),
    h('div', {}, h('h3', {}, title), h('p', {class: 'about'}, text)), button ?? null);
  return {socket, row};
}

const press = (text, run) => h('button', {type: 'button', onclick: run}, text);

async function leaves(pattern) {
  const reply = await call('find', {text: pattern});
  return reply.status === 0 ? reply.nodes.filter((node) => node.value !== undefined) : [];
}

/** Rows of leaves by the object that they are of. */
function byObject(nodes) {
  const rows = new Map();
  for (const node of nodes) {
    const path = parentOf(node.path);
    if (!rows.has(path)) rows.set(path, {path});
    rows.get(path)[nameOf(node.path)] = node.value;
  }
  return [...rows.values()];
}

async function ports(modem, tell) {
  const set = (path, value) => async () => tell(await call('status', {path, value}), `${nameOf(path)} is “${value}” now`);
  const [lan, wan, phones, directory, status, storage] = await Promise.all(['.IPInterface.*.*', '.WANIPConnection.*.*', '.PhyInterface.*.*',
    '.Line.*.DirectoryNumber', '.Line.*.Status', '.Storage.*.Name'].map(leaves));
  const made = [];
  byObject(lan).forEach((row, i) => made.push(port('lan', `LAN ${i + 1}`, row.Enable === '1' ? 'up' : '', `${row.IPInterfaceIPAddress || 'no address'}, mask ${row.IPInterfaceSubnetMask}`)));
  byObject(wan).forEach((row, i) => {
    const up = row.ConnectionStatus === 'Connected';
    made.push(port('wan', `WAN ${i + 1}`, up ? 'up' : '', `${row.Name || 'no name'}: ${row.ConnectionStatus}${row.ExternalIPAddress ? `, ${row.ExternalIPAddress}` : ''}`,
      press(up ? 'Unplug' : 'Plug in', set(`${row.path}.ConnectionStatus`, up ? 'Disconnected' : 'Connected'))));
  });
  const tests = byObject(phones.filter((node) => node.path.endsWith('.PhoneConnectivity')));
  const numbers = byObject([...directory, ...status]);
  tests.forEach((row, i) => {
    const up = row.PhoneConnectivity === '1';
    const line = numbers[i] ? `, line ${numbers[i].DirectoryNumber || 'without a number'}: ${numbers[i].Status}` : ', no line';
    made.push(port('phone', `Phone ${i + 1}`, up ? 'up' : '', (up ? 'a phone is there' : 'no phone') + line,
      press(up ? 'Unplug' : 'Plug in', set(`${row.path}.PhoneConnectivity`, up ? '0' : '1'))));
  });
  const sticks = byObject(storage);
  const USB = 'InternetGatewayDevice.X_CT-COM_USBDevice.Storage';
  if (sticks.length === 0) made.push(port('usb', 'USB', '', 'nothing plugged in', press('Plug in', async () => {
    const reply = await call('add', {path: USB});
    tell(reply.status === 0 ? await call('status', {path: `${reply.path}.Name`, value: 'usb1_1'}) : reply, 'a stick is there');
  })));
  for (const row of sticks) made.push(port('usb', 'USB', 'up', row.Name || `storage ${nameOf(row.path)}`, press('Unplug', async () =>
    tell(await call('delete', {path: row.path}), 'the stick is gone'))));
  const attached = modem?.attached;
  made.push(port('lte', 'LTE stick', attached ? 'up' : '', modem ? `${modem.number}, ${attached ? modem.behaviour : 'unplugged'}` : 'no simulator',
    press(attached ? 'Unplug' : 'Plug in', async () => tell(await call('modem', {verb: 'behave', how: attached ? 'vanish' : 'return'}), attached ? 'the stick is gone' : 'the stick is there'))));
  return made;
}

/* ---- all of it ---- */

/* Kept from the start of the page. */
const ran = [];
for (const kind of ['command', 'call'])
  on(kind, (event) => {
    ran.unshift(event);
    if (ran.length > SHOWN) ran.pop();
  });

export function view(root) {
  const front = h('ul', {class: 'lamps', 'aria-label': 'Lamps'});
  const sockets = h('ul', {class: 'sockets', 'aria-hidden': 'true'}); // the list of connectors says it in words
  const back = h('ul', {class: 'ports', 'aria-label': 'What is plugged in'});
  const keys = h('div', {class: 'keys'});
  const said = outcome();
  const log = h('ol', {class: 'log', 'aria-label': 'What it ran'});
  root.append(
    h('figure', {class: 'card device'}, h('figcaption', {}, h('strong', {}, 'DG-2000'), h('span', {}, 'Example Networks')), front, sockets),
    h('div', {class: 'two'},
      h('section', {class: 'card'}, h('h2', {}, 'Keys'), keys),
      h('section', {class: 'card'}, h('h2', {}, 'Connectors'), back)),
    said.element,
    h('section', {class: 'card'}, h('h2', {}, 'What it ran last'), log));
  let visible = true;
  let stale = 0;

  async function again() {
    const [state, told, modem] = await Promise.all([call('state'), call('keys'), call('modem', {verb: 'state'})]);
    if (state.status !== 0) return said.show(state.text, false);
    put(front, lamps(state.processes, state.lamps, modem.state?.attached ?? false));
    const lines = new Map();
    for (const record of told.keys ?? []) lines.set(record.line, [...(lines.get(record.line) ?? []), record]);
    if (keys.dataset.told !== JSON.stringify(told.keys)) {
      keys.dataset.told = JSON.stringify(told.keys);
      put(keys, lines.size ? [...lines.values()].map((records) => key(records, (text, good) => said.show(text, good)))
        : h('p', {class: 'about'}, 'The key driver was told nothing yet.'));
    }
    const made = await ports(modem.state, (reply, text) => {
      said.show(reply.status === 0 ? text : reply.text, reply.status === 0, reply.commands);
      again();
    });
    const seen = made.map(({row}) => row.textContent).join('');
    if (seen === back.textContent) return; // a button stays under the pointer
    renew(back, made.map(({row}) => row));
    put(sockets, made.map(({socket}) => socket));
  }

  /* Many events make one look. */
  function soon() {
    if (!visible || stale) return;
    stale = setTimeout(() => { stale = 0; again(); }, 400);
  }

  const note = () => put(log, ran.map(({kind, line}) => h('li', {class: kind}, h('code', {}, line))));
  note();
  for (const kind of ['command', 'call', 'processes', 'request', 'change']) on(kind, () => { note(); soon(); });
  again();
  return {again, shown(now) { visible = now; if (now) soon(); }};
}
