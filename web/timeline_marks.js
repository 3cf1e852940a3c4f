// What stands out in a timeline, as a list: each with its sentence and the way to its messages.
import {linkTo} from "./address.js";
import {element, given} from "./elements.js";
import * as figures from "./figures.js";
import {MARK_COLOURS} from "./timeline_chart.js";
import {moment, zoneName} from "./times.js";

const SHOWN = 100;
const WORDS = {gap: "Gap", reset: "Reset", resend: "Resend", silence: "Silence", burst: "Burst"};

function row(mark, isMoment) {
  const dot = element("span", {class: "swatch", "aria-hidden": "true"});
  dot.style.background = `var(--${MARK_COLOURS[mark.kind] ?? "muted"})`;
  // The place of a message begins a list of its table.
  const link = linkTo("messages", {table: mark.table, from: mark.at, m: `${mark.table}:${mark.at}`});
  return element("tr", {}, element("td", {}, dot, " ", WORDS[mark.kind] ?? given(mark.kind, 20)),
                 element("td", {class: "mono"}, element("a", {href: link}, moment(mark.t, isMoment))),
                 element("td", {}, given(mark.table, 60)), element("td", {}, given(mark.text, 300)));
}

export function markTable({marks, marksComplete}, isMoment) {
  const body = element("tbody", {}, marks.slice(0, SHOWN).map((mark) => row(mark, isMoment)));
  const more = marks.length <= SHOWN ? null : element("button", {type: "button", class: "small", onclick: (event) => {
    marks.slice(SHOWN).forEach((mark) => body.append(row(mark, isMoment)));
    event.target.remove();
  }}, `Show all ${figures.count(marks.length)}`);
  return [element("h2", {}, "What stands out"),
          marksComplete ? null : element("p", {class: "note"}, "The tables are still being looked through; more may come."),
          marks.length === 0 ? element("p", {class: "quiet"}, "No gap, reset, resend, silence or burst in this stretch.")
            : element("div", {class: "scroll", tabindex: "0", role: "region", "aria-label": "What stands out"},
                      element("table", {class: "marks stack"}, element("thead", {}, element("tr", {},
                        ["What", `When (${zoneName()})`, "Table", "Text"].map((name) => element("th", {scope: "col"}, name)))), body)), more];
}
