// The page: its views, which one is seen, and how the connection stands. A view is made when it is
// first looked at and stays, so that nothing that was typed is lost by looking at another.

import {call, link, on, start, takeToken} from './api.js';
import {h, icon, put, say} from './dom.js';
import {view as access} from './access.js';
import {view as firmware} from './firmware.js';
import {view as health} from './health.js';
import {view as model} from './model.js';
import {view as outside} from './outside.js';
import {view as phone} from './phone.js';
import {view as requests} from './requests.js';

const VIEWS = [
  {id: 'outside', title: 'Outside', view: outside, icon: 'M7 9V5M17 9V5M4 9h16v9H4zM8 13.5h.01M12 13.5h.01M16 13.5h.01'},
  {id: 'model', title: 'Data model', view: model, icon: 'M4 4h6v4H4zM14 10h6v4h-6zM14 16h6v4h-6zM7 8v10h7M7 12h7'},
  {id: 'requests', title: 'Requests', view: requests, icon: 'M4 7h13M14 4l3 3-3 3M20 17H7M10 14l-3 3 3 3'},
  {id: 'access', title: 'Access', view: access, icon: 'M12 3l7 3v5c0 5-3 8-7 10-4-2-7-5-7-10V6zM9 12l2 2 4-4'},
  {id: 'phone', title: 'Phone', view: phone, icon: 'M8 3h8v18H8zM11 18h2'},
  {id: 'firmware', title: 'Firmware', view: firmware, icon: 'M12 4v10M8 10l4 4 4-4M5 19h14'},
  {id: 'health', title: 'Health', view: health, icon: 'M3 12h4l3-8 4 16 3-8h4'},
];

const LINKS = {
  connecting: 'Connecting…',
  open: 'Live',
  lost: 'Connection lost: trying again. What you typed stays.',
  stranger: 'This gateway does not know the page: open the address that script/gateway --panel printed.',
  full: 'Too many pages are open: close one of them.',
};

const main = document.getElementById('main');
const links = new Map();
const made = new Map();

function show(id, focus) {
  const [name, path] = id.split('/');
  const entry = VIEWS.find((each) => each.id === name) ?? VIEWS[0];
  if (!made.has(entry.id)) {
    const section = h('section', {class: `view ${entry.id}`, 'aria-labelledby': `title-${entry.id}`},
      h('h1', {id: `title-${entry.id}`}, entry.title));
    main.append(section);
    made.set(entry.id, {section, ...entry.view(section)});
  }
  for (const [each, {section, shown}] of made) {
    section.hidden = each !== entry.id;
    shown?.(each === entry.id);
  }
  for (const [each, element] of links)
    if (each === entry.id) element.setAttribute('aria-current', 'page');
    else element.removeAttribute('aria-current');
  if (path) made.get(entry.id).go?.(decodeURIComponent(path));
  document.title = `${entry.title} – Gateway`;
  if (focus) main.focus({preventScroll: true});
}

function addNavigation() {
  for (const {id, title, icon: path} of VIEWS) {
    const element = h('a', {href: `#/${id}`}, icon(path), h('span', {}, title));
    links.set(id, element);
    document.getElementById('views').append(h('li', {}, element));
  }
  addEventListener('hashchange', () => {
    if (location.hash.startsWith('#/')) show(location.hash.slice(2), true);
    else if (location.hash.length > 32) location.reload(); // the address of another gateway
  });
}

function showLink() {
  const element = document.getElementById('link');
  element.className = link();
  say(element, LINKS[link()]);
  document.body.classList.toggle('away', link() !== 'open');
}

async function begin(name, button) {
  button.disabled = true;
  const reply = await call('process', {name, act: 'start'});
  button.disabled = false;
  if (reply.status !== 0) say(document.getElementById('link'), reply.text);
}

function showProcesses(processes) {
  put(document.getElementById('processes'), Object.entries(processes).map(([name, runs]) =>
    h('li', {class: runs ? 'runs' : 'gone'}, h('span', {class: 'dot', 'aria-hidden': 'true'}), name,
      h('span', {class: 'words'}, runs ? ' runs' : ' is gone'),
      runs ? null : h('button', {type: 'button', 'aria-label': `Start ${name}`, onclick: (event) => begin(name, event.target)}, 'Start'))));
}

takeToken();
addNavigation();
on('link', async ({link: now}) => {
  showLink();
  if (now !== 'open') return;
  const reply = await call('state');
  if (reply.status === 0) showProcesses(reply.processes);
  for (const {again} of made.values()) again?.();
});
on('processes', (event) => showProcesses(event.processes));
showLink();
show(location.hash.slice(2), false);
start();
