// The sequence diagram of an order in SVG: two lifelines, us at the left and the counterparty at the right, and an arrow for each
// step with its type, figures and the time since the one before. It is drawn for a width, and drawn anew for another.
import {drawing} from "./elements.js";
import * as figures from "./figures.js";
import {directionOf, isMomentOf, typeWords} from "./message_row.js";
import {stepFigures, stepStatus} from "./order_steps.js";
import {clock} from "./times.js";

export const MOST_ARROWS = 200;
const STEP = 62;   // pixels from arrow to arrow
const TOP = 44;
const HEAD = 7;
const LETTER = 7.1;  // the width of a letter, about

function fitted(text, width) {
  const most = Math.max(Math.floor(width / LETTER), 4);
  return text.length > most ? `${text.slice(0, most - 1)}…` : text;
}

const label = (x, y, kind, anchor, text, title = null) =>
  drawing("text", {x, y, class: kind, "text-anchor": anchor}, title ? drawing("title", {}, title) : null, text);

function lifeline(x, height, name, anchor) {
  return [label(x, 18, "party", anchor, name), drawing("line", {class: "life", x1: x, x2: x, y1: 28, y2: height - 6}),
          drawing("circle", {class: "life-head", cx: x, cy: 28, r: 3.5})];
}

function arrow(step, i, before, left, right, chosen) {
  const direction = directionOf(step);
  const y = TOP + (i + 1) * STEP - 8;
  const isSent = direction !== "received";
  const [from, to] = isSent ? [left, right] : [right, left];
  const tip = isSent ? -HEAD : HEAD;
  const width = right - left - 30;
  const middle = (left + right) / 2;
  const figuresText = stepFigures(step);
  const status = stepStatus(step);
  const words = [typeWords(step), status].filter(Boolean).join(", ");
  const shownWords = status && words.length * LETTER > width ? status : words;
  const pause = before === null ? clock(step.t, isMomentOf(step)) : `+${figures.duration(Math.max(step.t - before.t, 0))}`;
  const group = drawing("g", {class: `arrow ${direction}${step.isLate ? " isLate" : ""}`},
    drawing("rect", {class: "hit", x: left - 14, y: y - STEP + 14, width: right - left + 28, height: STEP - 6, rx: 4}),
    label(middle, y - 34, "pause", "middle", pause),
    label(middle, y - 20, "words", "middle", fitted(shownWords, width), words),
    label(middle, y - 6, "figures", "middle", fitted(figuresText, width), figuresText),
    drawing("line", {class: "shaft", x1: from, x2: to + tip, y1: y, y2: y}),
    drawing("path", {class: "head", d: `M${to} ${y}l${tip * 1.3} -4.5v9z`}));
  group.addEventListener("click", () => chosen(i));
  return group;
}

// The diagram of steps for a width; chosen(i) is called for a step that is clicked. The table beside it says the same.
export function orderDiagram(steps, width, chosen) {
  const drawn = steps.slice(0, MOST_ARROWS);
  const height = TOP + (drawn.length + 1) * STEP - 20;
  const left = 26;
  const right = Math.max(width - 26, left + 120);
  return drawing("svg", {class: "diagram", width, height, viewBox: `0 0 ${width} ${height}`, role: "img",
                         "aria-label": "Sequence diagram of the order; the table of steps says the same"},
    lifeline(left, height, "Us", "start").map((part, i) => {
      if (i === 0) { part.setAttribute("x", "8"); }
      return part;
    }),
    lifeline(right, height, "Counterparty", "end").map((part, i) => {
      if (i === 0) { part.setAttribute("x", String(width - 8)); }
      return part;
    }),
    drawn.map((step, i) => arrow(step, i, i > 0 ? drawn[i - 1] : null, left, right, chosen)));
}
