// What the page says to its server: calls, and the stream of events, which comes back by itself.
// The token is of the address that the gateway printed; the tab keeps it, and no request but these
// two carries it.

const KEY = 'gateway-token';
const SILENCE = 25000; // ms; the server says something every 10 s
const RETRY = 1500;

const listeners = new Map(); // kind -> functions
const state = {link: 'connecting', last: 0};

/** Takes the token out of the address. */
export function takeToken() {
  const given = /^#([0-9a-f]{32,})$/.exec(location.hash);
  if (!given) return;
  sessionStorage.setItem(KEY, given[1]);
  history.replaceState(null, '', location.pathname);
}

const headers = () => ({Authorization: `Bearer ${sessionStorage.getItem(KEY) ?? ''}`});

/** Calls `run` with each event of the kind; 'link' is how the connection stands. */
export function on(kind, run) {
  if (!listeners.has(kind)) listeners.set(kind, new Set());
  listeners.get(kind).add(run);
}

function tell(event) {
  for (const run of listeners.get(event.kind) ?? []) run(event);
}

function setLink(link) {
  if (state.link === link) return;
  state.link = link;
  tell({kind: 'link', link});
}

export const link = () => state.link;

/** The reply: {status, text, ...}; status 0 is done. It never throws: what fails is a reply, too. */
export async function call(name, asked = {}) {
  try {
    const response = await fetch(`api/${name}`, {
      method: 'POST',
      headers: {...headers(), 'Content-Type': 'application/json'},
      body: JSON.stringify(asked),
    });
    if (response.status === 401) setLink('stranger');
    return await response.json();
  } catch {
    return {status: 3, text: 'the gateway is not reached: nothing was lost here, try again when it is back'};
  }
}

function take(block) {
  let data = '';
  for (const line of block.split('\n')) {
    if (line.startsWith('id: ')) state.last = Number(line.slice(4));
    else if (line.startsWith('data: ')) data = line.slice(6);
  }
  if (data !== '') tell(JSON.parse(data));
}

async function follow() {
  const silence = new AbortController();
  let timer = setTimeout(() => silence.abort(), SILENCE);
  try {
    const response = await fetch(`api/events?after=${state.last}`, {headers: headers(), signal: silence.signal});
    if (response.status === 401) return setLink('stranger');
    if (!response.ok) return setLink('full');
    setLink('open');
    const reader = response.body.pipeThrough(new TextDecoderStream()).getReader();
    for (let text = ''; ;) {
      const {done, value} = await reader.read();
      if (done) return setLink('lost');
      clearTimeout(timer);
      timer = setTimeout(() => silence.abort(), SILENCE);
      const blocks = (text + value).split('\n\n');
      text = blocks.pop();
      for (const block of blocks) take(block);
    }
  } catch {
    setLink('lost');
  } finally {
    clearTimeout(timer);
  }
}

/** Follows the events for ever. */
export async function start() {
  for (;;) {
    await follow();
    await new Promise((resolve) => setTimeout(resolve, RETRY));
  }
}
