// How the gateway does: requests a second, how long they took, memory, and what waits for modules.

import {call} from './api.js';
import {h, put, say} from './dom.js';
import {plot} from './plot.js';

const KEPT = 300; // samples, one a second
const EACH = 1000; // ms

/** A table "tag blocks bytes", as the daemon prints it, in rows. */
export const rowsOf = (text) => text.split('\n').map((line) => /^\s*(\S+)\s+(-?\d+)\D+(-?\d+)\D*$/.exec(line)).filter(Boolean)
  .map(([, tag, blocks, bytes]) => ({tag, blocks: Number(blocks), bytes: Number(bytes)}));

export function view(root) {
  const plots = [
    plot('Requests', [{name: 'requests', title: 'a second'}], ''),
    plot('Answer time', [{name: 'median', title: 'median'}, {name: 'p99', title: '99th'}], 'ms'),
    plot('Memory', [{name: 'sysmgr', title: 'sysmgr'}, {name: 'dbmgr', title: 'dbmgr'}], 'MiB'),
  ];
  const queues = h('tbody', {});
  const blocks = h('tbody', {});
  const said = h('p', {class: 'about', role: 'status'});
  const table = (body, ...heads) => h('table', {class: 'facts-table'}, h('thead', {}, h('tr', {}, heads.map((head) => h('th', {scope: 'col'}, head)))), body);
  root.append(h('div', {class: 'plots'}, plots.map(({element}) => element)), said,
    h('div', {class: 'two'},
      h('section', {class: 'card'}, h('h2', {}, 'What waits for a module'), table(queues, 'Endpoint', 'Bytes')),
      h('section', {class: 'card'}, h('div', {class: 'line'}, h('h2', {}, 'The daemon’s blocks by tag'), h('button', {type: 'button', onclick: look}, 'Count')),
        table(blocks, 'Tag', 'Blocks', 'Bytes'))));
  let samples = [];
  let last = 0;
  let timer = 0;

  const cells = (...texts) => h('tr', {}, texts.map((text, i) => (i ? h('td', {class: 'mono'}, text) : h('th', {scope: 'row'}, text))));

  async function look() {
    const reply = await call('memory');
    put(blocks, reply.status === 0 ? rowsOf(reply.text).map(({tag, blocks: number, bytes}) => cells(tag, String(number), String(bytes)))
      : h('tr', {}, h('td', {colspan: '3'}, reply.text)));
  }

  async function step() {
    const reply = await call('health', {after: last});
    say(said, reply.status === 0 ? '' : reply.text);
    if (reply.status !== 0) return;
    if (reply.last < last) samples = []; // the panel's server is another one
    last = reply.last;
    samples = [...samples, ...reply.samples].slice(-KEPT);
    for (const {draw} of plots) draw(samples, KEPT);
    put(queues, Object.entries(reply.queues).filter(([name]) => /^(?!panel).*:/.test(name)).map(([name, bytes]) => cells(name, String(bytes))));
  }

  return {
    again: () => { last = 0; samples = []; },
    shown(now) {
      clearInterval(timer);
      if (!now) return;
      step();
      look();
      timer = setInterval(step, EACH);
    },
  };
}
