// Access control: what the kernel's chains do now with a new connection to each service, by side and
// version, the rule behind it, and the entry that made the rule.

import {call, on} from './api.js';
import {field, h, outcome, put, renew, say} from './dom.js';
import {nameOf, parentOf} from './tree.js';

const SERVICES = 'InternetGatewayDevice.Services';
const ACCESS = `${SERVICES}.ServiceAccessControl`;
const SIDES = [['LAN', 'br0'], ['WAN', 'wan0']];
const VERSIONS = [['v4', 'IPv4', 1], ['v6', 'IPv6', 2]];

const KNOWN = [
  {service: 'TELNET', protocol: 'tcp', from: 'ServiceTelnet.Port', port: 23},
  {service: 'SSH', protocol: 'tcp', from: 'ServiceSSH.Port', port: 22},
  {service: 'FTP', protocol: 'tcp', from: 'ServiceFTP.Port', port: 21},
  {service: 'TFTP', protocol: 'udp', from: 'ServiceTFTP.Port', port: 69},
  {service: 'HTTP', protocol: 'tcp', port: 80},
  {service: 'SNMP', protocol: 'udp', port: 161},
  {service: 'SAMBA', protocol: 'tcp', port: 445},
  {service: 'ICMP', protocol: 'icmp', port: 8},
];

/** The rows of the table: a service for each of its ports, and what entries name beside. */
export function rowsOf(ports, entries) {
  const rows = KNOWN.flatMap(({service, protocol, from, port}) => {
    const all = new Set((ports[from] ?? String(port)).split(',').map(Number).filter((each) => each > 0));
    for (const entry of entries)
      if (entry.ServiceName === service && protocol !== 'icmp') all.add(Number(entry.Port) || port);
    return [...all].map((each) => ({service, protocol, port: each}));
  });
  for (const {ServiceName: service, Port: port} of entries)
    if (/^(TCP|UDP)$/.test(service) && !rows.some((row) => row.service === service && row.port === Number(port)))
      rows.push({service, protocol: service.toLowerCase(), port: Number(port)});
  return rows;
}

/** The entry whose rule that is, or undefined: one of the chains themselves. */
export function entryOf(rule, row, side, bit, entries) {
  if (!/^-A SCL_IP_ACCEPT/.test(rule)) return undefined;
  return entries.find((entry) => entry.Enable === '1' && (Number(entry.IPMode) & bit) && entry.ServiceName === row.service &&
    (entry.AccessDirection === side || !/^(LAN|WAN)$/.test(entry.AccessDirection)) &&
    (entry.SrcIpRange ? rule.includes(entry.SrcIpRange) : !rule.includes('--src-range')) &&
    (Number(entry.Port) === 0 || Number(entry.Port) === row.port) && rule.endsWith(`-j ${entry.Action}`));
}

const isOpen = (judged) => judged.verdict === 'ACCEPT';

function wordOf(judged) {
  if (judged.exceptions.length === 0) return isOpen(judged) ? 'open' : 'closed';
  return isOpen(judged) ? 'open, but' : 'for some';
}

function entryLine(entry, remove) {
  const range = entry.SrcIpRange ? ` from ${entry.SrcIpRange}` : '';
  const port = Number(entry.Port) ? ` port ${entry.Port}` : '';
  const version = {1: 'IPv4', 2: 'IPv6', 3: 'IPv4 and IPv6'}[entry.IPMode] ?? 'no IP version';
  return h('li', {class: entry.Enable === '1' ? '' : 'unused'},
    h('a', {href: `#/model/${encodeURIComponent(entry.path)}`, class: 'mono'}, nameOf(entry.path)),
    h('span', {}, `${entry.ServiceName || 'no service'}${port}, ${entry.AccessDirection || 'both sides'}${range}: ${entry.Action}, ${version}${entry.Enable === '1' ? '' : ' (off)'}`),
    h('button', {type: 'button', 'aria-label': `Delete entry ${nameOf(entry.path)}`, onclick: () => remove(entry)}, 'Delete'));
}

function adder(done) {
  const select = (...options) => h('select', {}, options.map(([value, text]) => h('option', {value}, text ?? value)));
  const fields = {
    ServiceName: field('Service', select(...KNOWN.map(({service}) => [service]), ['TCP'], ['UDP'])),
    AccessDirection: field('Side', select(['LAN'], ['WAN'], ['', 'both'])),
    Action: field('Action', select(['ACCEPT'], ['DROP'])),
    IPMode: field('IP', select(['1', 'IPv4'], ['2', 'IPv6'], ['3', 'both'])),
    Port: field('Port, 0: usual', h('input', {type: 'text', inputmode: 'numeric', value: '0'})),
    SrcIpRange: field('Sources', h('input', {type: 'text', placeholder: 'any', spellcheck: 'false'})),
  };
  async function submit(event) {
    event.preventDefault();
    const row = await call('add', {path: `${ACCESS}.ServiceCtrlList`});
    if (row.status !== 0) return done(row, '');
    const leaves = [...Object.entries(fields).flatMap(([leaf, {input}]) => [`${row.path}.${leaf}`, input.value]), `${row.path}.Enable`, '1'];
    const reply = await call('set', {leaves});
    if (reply.status !== 0) await call('delete', {path: row.path});
    done(reply, `Added entry ${nameOf(row.path)}.`);
  }
  return h('form', {class: 'entry-form', onsubmit: submit}, Object.values(fields).map(({element}) => element),
    h('button', {type: 'submit', class: 'primary'}, 'Add entry'));
}

export function view(root) {
  const table = h('table', {class: 'access-table'});
  const detail = h('div', {class: 'access-detail', role: 'status', 'aria-live': 'polite'}, h('p', {class: 'about'}, 'Choose a cell to see the rule behind it.'));
  const list = h('ul', {class: 'entries'});
  const enable = h('input', {type: 'checkbox', role: 'switch', class: 'switch', id: 'access-on', onchange: () => setLeaf('Enable', enable)});
  const only = h('input', {type: 'checkbox', role: 'switch', class: 'switch', id: 'access-only', onchange: () => setLeaf('OnlyTr69Wan', only)});
  const said = outcome();
  root.append(
    h('section', {class: 'card'}, h('div', {class: 'line wrap'}, h('div', {class: 'line'}, enable, h('label', {for: 'access-on'}, 'Access control')),
      h('div', {class: 'line'}, only, h('label', {for: 'access-only'}, 'Entries open the LAN side only (from the next start)'))), said.element),
    h('section', {class: 'card scroll', tabindex: '0', 'aria-label': 'Services by side'}, table),
    h('section', {class: 'card'}, h('h2', {}, 'Behind the cell'), detail),
    h('section', {class: 'card'}, h('h2', {}, 'Entries'), list, adder(told)));
  let chosen = '';
  let stale = 0;
  let visible = true;

  function told(reply, text) {
    said.show(reply.status === 0 ? text : reply.text, reply.status === 0, reply.commands);
    again();
  }
  async function setLeaf(leaf, box) {
    told(await call('set', {leaves: [`${ACCESS}.${leaf}`, box.checked ? '1' : '0']}), `${leaf} is ${box.checked ? 'on' : 'off'} now.`);
  }
  const remove = async (entry) => told(await call('delete', {path: entry.path}), `Deleted entry ${nameOf(entry.path)}.`);

  function explain(row, side, [, title, bit], judged, entries) {
    const rule = (text, words) => {
      const entry = entryOf(text, row, side, bit, entries);
      return h('li', {}, h('span', {}, words), h('code', {}, text), h('span', {class: 'about'},
        entry ? ['made by entry ', h('a', {href: `#/model/${encodeURIComponent(entry.path)}`}, nameOf(entry.path))] : /^-P/.test(text) ? 'the chain’s policy: no rule is for it' : 'made for the service: no entry'));
    };
    put(detail, h('h3', {}, `${row.service} ${row.port} from the ${side}, ${title}: ${wordOf(judged)}`),
      h('ol', {class: 'rules'}, judged.exceptions.map((text) => rule(text, 'first, for some: ')), rule(judged.rule, 'then, for all: ')));
  }

  function cell(row, side, version, judged, entries) {
    const id = `${row.service} ${row.port} ${side} ${version[0]}`;
    const word = wordOf(judged);
    const open = () => {
      chosen = id;
      for (const each of table.querySelectorAll('button')) each.setAttribute('aria-pressed', String(each === button));
      explain(row, side, version, judged, entries);
    };
    const button = h('button', {type: 'button', class: `cell ${word.replace(/\W+/g, '-')}`, 'aria-pressed': String(id === chosen),
      'aria-label': `${row.service} ${row.port}, ${side}, ${version[1]}: ${word}`, onclick: open}, word);
    if (id === chosen) explain(row, side, version, judged, entries);
    return h('td', {}, button);
  }

  function draw(rows, judged, entries) {
    renew(table, h('thead', {}, h('tr', {}, h('th', {scope: 'col', rowspan: '2'}, 'Service'), SIDES.map(([side]) => h('th', {scope: 'colgroup', colspan: '2'}, `from the ${side}`))),
      h('tr', {}, SIDES.flatMap(([side]) => VERSIONS.map(([, title]) => h('th', {scope: 'col'}, title))))),
    h('tbody', {}, rows.map((row, i) => h('tr', {}, h('th', {scope: 'row'}, row.service, h('span', {class: 'about'}, row.protocol === 'icmp' ? ' echo' : ` ${row.protocol} ${row.port}`)),
      SIDES.flatMap(([side], j) => VERSIONS.map((version) => cell(row, side, version, judged[version[0]][i * SIDES.length + j], entries)))))));
  }

  async function again() {
    const [found, own, ...ports] = await Promise.all([call('find', {text: `${ACCESS}.ServiceCtrlList.*.*`}), call('nodes', {path: ACCESS}),
      ...KNOWN.filter(({from}) => from).map(({from}) => call('find', {text: `${SERVICES}.${from}`}))]);
    if (found.status !== 0 || own.status !== 0) return say(detail, found.text || own.text);
    const entries = new Map();
    for (const {path, value} of found.nodes) {
      const row = parentOf(path);
      if (!entries.has(row)) entries.set(row, {path: row});
      entries.get(row)[nameOf(path)] = value;
    }
    const all = [...entries.values()];
    const leaf = (name) => own.nodes.find((node) => nameOf(node.path) === name)?.value;
    enable.checked = leaf('Enable') !== '0';
    only.checked = leaf('OnlyTr69Wan') === '1';
    renew(list, all.length ? all.map((entry) => entryLine(entry, remove)) : h('li', {class: 'about'}, 'None: with access control on, every service is closed.'));
    const values = Object.fromEntries(ports.flatMap((reply) => reply.nodes ?? []).map((node) => [node.path.slice(SERVICES.length + 1), node.value]));
    const rows = rowsOf(values, all);
    const judged = await call('access', {packets: rows.flatMap((row) => SIDES.map(([, name]) => ({in: name, protocol: row.protocol, port: row.port})))});
    if (judged.status !== 0) return say(detail, judged.text);
    draw(rows, judged, all);
  }
  function soon() {
    if (!visible || stale) return;
    stale = setTimeout(() => { stale = 0; again(); }, 300);
  }
  on('command', ({line}) => { if (/ip6?tables/.test(line)) soon(); });
  on('request', ({path}) => { if (path.startsWith(ACCESS)) soon(); }); // it ends behind its last command
  again();
  return {again, shown(now) { visible = now; if (now) soon(); }};
}
