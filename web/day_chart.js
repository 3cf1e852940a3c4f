// A small chart of the 24 hours up to a table's last message: 96 counts as a filled line.
import {drawing} from "./elements.js";
import {count} from "./figures.js";
import {clock} from "./times.js";

const WIDTH = 192;
const HEIGHT = 32;

export function dayChart(day, isMoment) {
  if (!day) {
    return "-";
  }
  const most = Math.max(...day.counts, 1);
  const step = WIDTH / day.counts.length;
  let bars = "";
  day.counts.forEach((value, i) => {
    if (value > 0) {
      const height = Math.max(value / most * (HEIGHT - 2), 1);
      bars += `M${(i * step).toFixed(2)} ${HEIGHT}v${(-height).toFixed(2)}h${(step * 0.8).toFixed(2)}v${height.toFixed(2)}z`;
    }
  });
  const from = clock(day.from, isMoment).slice(0, 5);
  const words = `From ${from} on, in steps of ${Math.round(day.step / 60000)} minutes: at most ` +
      `${day.estimate ? "about " : ""}${count(most)} messages a step`;
  return drawing("svg", {class: "day", viewBox: `0 0 ${WIDTH} ${HEIGHT}`, preserveAspectRatio: "none", role: "img",
                         "aria-label": words},
                 drawing("title", {}, words),
                 drawing("path", {class: "base", d: `M0 ${HEIGHT - 0.5}h${WIDTH}`}), drawing("path", {class: "bars", d: bars}));
}
