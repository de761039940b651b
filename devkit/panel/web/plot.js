// Lines over the last minutes.

import {h, put, s, say, short} from './dom.js';

const WIDTH = 420;
const HEIGHT = 120;

/** A top of the scale with few digits that all values fit below. */
export function topOf(most) {
  if (!(most > 0)) return 1;
  const unit = 10 ** Math.floor(Math.log10(most));
  return [1, 2, 5, 10].map((each) => each * unit).find((each) => each >= most);
}

/** A plot with a line for each name of `lines` ({name, title}); `unit` stands behind numbers. */
export function plot(title, lines, unit) {
  const drawing = s('svg', {viewBox: `0 0 ${WIDTH} ${HEIGHT}`, preserveAspectRatio: 'none', role: 'img', class: 'plot-lines'});
  const top = h('span', {class: 'plot-top mono'});
  const legend = h('ul', {class: 'legend'});
  const element = h('figure', {class: 'card plot'}, h('figcaption', {}, h('h2', {}, title), legend), h('div', {class: 'plot-area'}, top, drawing),
    h('p', {class: 'plot-times about'}, h('span', {}, '5 minutes ago'), h('span', {}, 'now')));

  /** `samples`: objects, the newest last; what a sample has not makes a gap. */
  function draw(samples, most) {
    const scale = topOf(Math.max(0, ...samples.flatMap((sample) => lines.map(({name}) => sample[name] ?? 0))));
    const x = (i) => WIDTH - (samples.length - 1 - i) * (WIDTH / (most - 1));
    const y = (value) => HEIGHT - 2 - (value / scale) * (HEIGHT - 6);
    say(top, `${short(scale)} ${unit}`);
    put(drawing, [0.25, 0.5, 0.75, 1].map((part) => s('line', {x1: '0', x2: String(WIDTH), y1: String(y(scale * part)), y2: String(y(scale * part)), class: 'grid'})),
      lines.map(({name}, i) => {
        let path = '';
        let gap = true;
        samples.forEach((sample, at) => {
          if (sample[name] === undefined || sample[name] === null) { gap = true; return; }
          path += `${gap ? 'M' : 'L'}${x(at).toFixed(1)} ${y(sample[name]).toFixed(1)}`;
          gap = false;
        });
        return s('path', {d: path, class: `line-${i}`});
      }));
    const last = samples.at(-1) ?? {};
    const words = lines.map(({name, title: each}) => `${each} ${last[name] === undefined || last[name] === null ? '–' : `${short(last[name])}${unit && ` ${unit}`}`}`);
    drawing.setAttribute('aria-label', `${title}: ${words.join(', ')}`);
    put(legend, words.map((text, i) => h('li', {}, h('span', {class: `key-${i}`, 'aria-hidden': 'true'}), text)));
  }
  return {element, draw};
}
