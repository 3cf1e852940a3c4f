// The figures of a timeline as a table, for whom a chart tells nothing. It is made when it is opened.
import {element, given, replace} from "./elements.js";
import * as figures from "./figures.js";
import {moment, zoneName} from "./times.js";

// Bars without any message are left out.
function tableOf({series, from, step}, isMoment) {
  const length = series[0]?.counts.length ?? 0;
  const rows = [];
  for (let i = 0; i < length; ++i) {
    if (series.some((one) => one.counts[i] > 0)) {
      rows.push(element("tr", {}, element("th", {scope: "row", class: "mono"}, moment(from + i * step, isMoment)),
                        series.map((one) => element("td", {class: "number"}, figures.count(Math.round(one.counts[i]))))));
    }
  }
  const names = series.map((one) => element("th", {scope: "col", class: "number"}, one.name === "" ? "Messages" : given(one.name, 60)));
  return element("div", {class: "scroll", tabindex: "0", role: "group", "aria-label": "Messages of each bar"},
                 element("table", {}, element("thead", {}, element("tr", {}, element("th", {scope: "col"}, `From (${zoneName()})`), names)),
                         element("tbody", {}, rows)));
}

export class TimelineFigures {
  constructor() {
    this.content = element("div", {});
    this.element = element("details", {class: "filter-box", ontoggle: () => this.#draw()},
                           element("summary", {}, "The figures as a table"), this.content);
    this.answer = null;
  }

  show(answer, isMoment) {
    this.answer = answer;
    this.isMoment = isMoment;
    this.#draw();
  }

  #draw() {
    replace(this.content, this.element.open && this.answer ? tableOf(this.answer, this.isMoment) : null);
  }
}
