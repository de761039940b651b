// A phone in the gateway's network: messages both ways, service codes, and what the network and the
// SIM do meanwhile.

import {call, on} from './api.js';
import {field, h, outcome, put, s, say} from './dom.js';

const SMS = 'InternetGatewayDevice.Services.X_KVO_ShortMsg';
const MOST = 200; // messages of the conversation
const BEHAVIOURS = [
  ['normal', 'answers'], ['slow', 'answers late'], ['refuse', 'refuses'], ['garbage', 'sends garbage'], ['drop', 'drops out in its next answer'],
];
const ERRORS = [
  ['', 'every command', 0], ['38', 'sending: network out of order', 38], ['41', 'sending: temporary failure', 41],
  ['50', 'sending: facility not subscribed', 50], ['21', 'sending: rejected', 21],
];
const NO_NETWORK = 99; // of signals, which the modem numbers from 0 to 31
const SIGNALS = [['24', 'strong'], ['12', 'weak'], ['3', 'hardly there'], [String(NO_NETWORK), 'no network']];

const button = (text, run, attributes = {}) => h('button', {type: 'button', onclick: run, ...attributes}, text);

/** The texts of a list of parts: a long message's follow one another. */
export function joined(messages) {
  const list = [];
  for (const message of messages) {
    const [reference, number, total] = message.part ?? ['', 0, 0];
    const last = list.at(-1);
    if (total > 1 && number > 1 && last?.reference === reference && last.other === message.other) last.text += message.text;
    else list.push({...message, reference: total > 1 ? reference : null});
  }
  return list;
}

/** What came behind the messages of `before` in a list that loses its first ones. */
export function added(before, now) {
  for (let kept = Math.min(before.length, now.length); kept > 0; --kept)
    if (before.slice(-kept).every((each, i) => each === now[i])) return now.slice(kept);
  return now;
}

/** The daemon writes answers for a page that shows markup: a text again. */
export const plain = (text) => text.replace(/<br>/g, '\n').replace(/&quot;/g, '"').replace(/&#(\d{1,6});/g, (_, code) => String.fromCodePoint(Number(code)));

function bars(modem) {
  const strength = !modem?.attached || modem.signal === NO_NETWORK ? 0 : Math.floor(modem.signal / 8) + 1;
  return s('svg', {viewBox: '0 0 20 16', class: 'bars', role: 'img', 'aria-label': `Signal ${strength} of 4`},
    [0, 1, 2, 3].map((i) => s('rect', {x: String(i * 5), y: String(12 - i * 4), width: '3.5', height: String(4 + i * 4), rx: '1', class: i < strength ? 'lit' : ''})));
}

/* ---- the phone ---- */

function handset(changed) {
  const thread = h('ol', {class: 'thread', 'aria-label': 'Conversation with the gateway', role: 'log', tabindex: '0'});
  const own = h('input', {type: 'tel', value: '27838890001', class: 'own', 'aria-label': 'Number of this phone'});
  const text = h('textarea', {rows: '2', 'aria-label': 'Message to the gateway', placeholder: 'Message to the gateway'});
  const send = h('button', {type: 'submit', class: 'primary'}, 'Send');
  const signal = h('span', {});
  const said = h('p', {class: 'error', role: 'alert'});
  const element = h('section', {class: 'handset', 'aria-label': 'A phone in the network'},
    h('div', {class: 'handset-top'}, own, signal), thread, said,
    h('form', {class: 'composer', onsubmit: submit}, text, send));

  function bubble(message, mine) {
    thread.append(h('li', {class: mine ? 'mine' : 'theirs'}, h('p', {}, message.text),
      h('small', {}, mine ? `to the gateway${message.other ? ` from ${message.other}` : ''}` : `from the gateway to ${message.other}`)));
    while (thread.children.length > MOST) thread.firstChild.remove();
    thread.scrollTop = thread.scrollHeight;
  }

  async function submit(event) {
    event.preventDefault();
    const message = text.value, from = own.value.trim(); // more may be typed meanwhile
    if (message === '') return;
    const reply = await call('modem', {verb: 'receive', from, message});
    say(said, reply.status === 0 ? '' : reply.text);
    if (reply.status !== 0) return;
    bubble({text: message, other: from}, true);
    if (text.value === message) text.value = '';
    changed();
  }

  return {element, bubble, number: () => own.value.trim(), show: (modem) => put(signal, bars(modem))};
}

/* ---- the gateway's side ---- */

function sender(phone, changed) {
  const to = field('To', h('input', {type: 'tel', value: phone.number()}));
  const text = field('Text', h('textarea', {rows: '3'}));
  const said = outcome();
  async function submit(event) {
    event.preventDefault();
    const message = text.input.value;
    const reply = await call('set', {leaves: [`${SMS}.MsgSend.MsgTo`, to.input.value, `${SMS}.MsgSend.MsgContent`, message]});
    said.show(reply.status === 0 ? 'Sent.' : reply.text, reply.status === 0, reply.commands);
    if (reply.status === 0 && text.input.value === message) text.input.value = '';
    changed();
  }
  return h('section', {class: 'card'}, h('h2', {}, 'The gateway sends'),
    h('form', {class: 'stack', onsubmit: submit}, to.element, text.element, h('div', {class: 'actions'}, h('button', {type: 'submit', class: 'primary'}, 'Send'))), said.element);
}

function codes() {
  const code = field('Code, or the number of a choice', h('input', {type: 'text', value: '*100#', spellcheck: 'false'}));
  const answer = h('pre', {class: 'answer', role: 'status', 'aria-label': 'Answer of the network'});
  const said = outcome();
  async function dial(what) {
    const reply = await call('set', {leaves: [`${SMS}.USSD.Command`, what]});
    const menu = reply.status === 0 && what !== 'cancel' ? await call('get', {path: `${SMS}.USSD.Menu`}) : null;
    say(answer, menu?.status === 0 ? plain(menu.value) : '');
    if (reply.status === 0) said.clear();
    else said.show(reply.text, false, reply.commands);
  }
  return h('section', {class: 'card'}, h('h2', {}, 'Service codes'),
    h('form', {class: 'stack', onsubmit: (event) => { event.preventDefault(); dial(code.input.value.trim()); }}, code.element,
      h('div', {class: 'actions'}, h('button', {type: 'submit', class: 'primary'}, 'Dial'), button('End the dialogue', () => dial('cancel')))), answer, said.element);
}

function network(changed) {
  const how = field('The network', h('select', {}, BEHAVIOURS.map(([value, text]) => h('option', {value}, text))));
  const signal = field('The signal', h('select', {}, SIGNALS.map(([value, text]) => h('option', {value}, text))));
  signal.input.addEventListener('change', () => tell({verb: 'signal', strength: Number(signal.input.value)}));
  const late = field('Milliseconds', h('input', {type: 'text', inputmode: 'numeric', value: '2000'}), {hidden: true});
  const what = field('What it refuses', h('select', {}, ERRORS.map(([value, text]) => h('option', {value}, text))), {hidden: true});
  const said = outcome();
  const meters = h('div', {class: 'meters'});
  const size = field('Places on the SIM', h('input', {type: 'text', inputmode: 'numeric', value: '50'}));

  async function tell(asked) {
    const reply = await call('modem', asked);
    said.show(reply.status === 0 ? 'Done.' : reply.text, reply.status === 0);
    changed();
  }
  function look() {
    late.element.hidden = how.input.value !== 'slow';
    what.element.hidden = how.input.value !== 'refuse';
  }
  how.input.addEventListener('change', look);
  function submit(event) {
    event.preventDefault();
    const asked = {verb: 'behave', how: how.input.value};
    if (asked.how === 'slow') asked.amount = Number(late.input.value);
    if (asked.how === 'refuse' && what.input.value) Object.assign(asked, {amount: Number(what.input.value), only: '+CMGS'});
    tell(asked);
  }
  const element = h('section', {class: 'card'}, h('h2', {}, 'Network and SIM'), meters,
    h('form', {class: 'stack', onsubmit: submit}, signal.element, how.element, late.element, what.element, h('div', {class: 'actions'}, h('button', {type: 'submit'}, 'Behave so'))),
    h('form', {class: 'stack inline', onsubmit: (event) => { event.preventDefault(); tell({verb: 'size', what: 'SM', places: Number(size.input.value)}); }}, size.element, h('button', {type: 'submit'}, 'Resize')),
    said.element);

  return {element, show(modem) {
    const rows = Object.entries(modem?.storages ?? {}).map(([name, {size: all, messages}]) => [name === 'SM' ? 'SIM' : 'Modem', messages.length, all]);
    if (modem) {
      [signal.input.value] = modem.signal === NO_NETWORK ? SIGNALS[3] : SIGNALS.find(([value]) => Number(value) <= modem.signal) ?? SIGNALS[2];
      rows.push(['Phonebook', modem.phonebook.entries.length, modem.phonebook.size]);
    }
    put(meters, rows.map(([name, used, all]) => h('div', {class: 'meter-row'}, h('span', {}, name),
      h('meter', {min: '0', max: String(all), high: String(all * 0.8), value: String(used), 'aria-label': `${name} filled`}), h('span', {class: 'mono'}, `${used} of ${all}`))),
    modem?.waiting ? h('p', {class: 'error'}, `${modem.waiting} more wait for room`) : null);
  }};
}

export function view(root) {
  const phone = handset(() => soon());
  const net = network(() => soon());
  root.append(h('div', {class: 'phone-panes'}, phone.element, h('div', {class: 'stack'}, sender(phone, () => soon()), codes()), net.element));
  let sent = null;
  let stale = 0;
  let visible = true;

  async function again() {
    const {state} = await call('modem', {verb: 'state'});
    phone.show(state);
    net.show(state);
    if (!state) return;
    const now = state.sent.map((message) => JSON.stringify(message));
    for (const message of joined(added(sent ?? [], now).map((each) => JSON.parse(each)).map((each) => ({...each, other: each.to})))) phone.bubble(message, false);
    sent = now;
  }
  function soon() {
    if (!visible || stale) return;
    stale = setTimeout(() => { stale = 0; again(); }, 250);
  }
  on('command', ({line}) => { if (/at-mngr|nanocom/.test(line)) soon(); });
  on('request', ({path}) => { if (path.startsWith(SMS)) soon(); }); // it ends behind its last command
  again();
  return {again, shown(now) { visible = now; if (now) soon(); }};
}
