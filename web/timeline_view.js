// Timeline: how many messages there were when, by what they are, and what stands out. In the address: tables and filters, by,
// from and to (times; the filters since and until count as these where they are whole dates). A stretch is selected by dragging or with Shift and the arrows; Enter or a double click opens its
// messages.
import {changed, go, keep, linkTo} from "./address.js";
import * as board from "./board.js";
import {colour, element, given, replace, setText} from "./elements.js";
import * as figures from "./figures.js";
import {Filters, questionOf} from "./filters.js";
import {Asker} from "./server.js";
import {seriesColour, TimelineChart} from "./timeline_chart.js";
import {TimelineFigures} from "./timeline_figures.js";
import {markTable} from "./timeline_marks.js";
import {filterTime, moment, zoneName} from "./times.js";

const ASK_AFTER = 160;      // milliseconds of rest before another stretch is asked for
const RENEW_AFTER = 2000;   // between two questions because of new messages
const SHORTEST = 2;         // the shortest stretch that is shown, in milliseconds

// A time of the filters in milliseconds, where it can be told without the tables: "2026-11-20T19:31:45".
function wholeDate(text) {
  const isDate = text !== null && /^\d{4}-\d\d-\d\d/.test(text);
  const time = isDate ? Date.parse(/T/.test(text) && !/Z|[+-]\d\d:\d\d$/.test(text) ? `${text}Z` : text) : NaN;
  return Number.isFinite(time) ? time : null;
}

// The filters without the stretch, which is asked for by its times.
function filtersWithout(parameters) {
  const question = questionOf(parameters);
  question.delete("until");
  if (wholeDate(question.get("since")) !== null) {
    question.delete("since");
  }
  return question;
}

class Timeline {
  constructor(host, parameters) {
    this.asker = new Asker();
    this.filters = new Filters((query) => go("timeline", changed(query, {by: this.by.value})));
    this.by = element("select", {id: "timeline-by", onchange: () => go("timeline", changed(this.parameters, {by: this.by.value}))});
    this.canvas = element("canvas", {});
    this.stage = element("div", {class: "stage", tabindex: "0", role: "application", "aria-roledescription": "timeline",
                                 "aria-label": "Messages by time", "aria-describedby": "timeline-help timeline-told"}, this.canvas);
    this.chart = new TimelineChart(this.canvas);
    this.told = element("p", {id: "timeline-told", role: "status"});
    this.under = element("p", {class: "under-pointer quiet"}, "\u00a0");
    this.legend = element("ul", {class: "legend"});
    this.problem = element("p", {class: "error", role: "alert", hidden: true});
    this.marks = element("div", {});
    this.figures = new TimelineFigures();
    this.open = element("a", {class: "button"}, "Messages of it");
    const button = (text, label, action) => element("button", {type: "button", class: "small", "aria-label": label, title: label, onclick: action}, text);
    replace(host, element("div", {class: "row spread"}, element("h1", {}, "Timeline"), element("div", {class: "row"},
        element("label", {class: "together"}, "By", this.by),
        button("+", "Zoom in", () => this.#zoom(0.5)), button("−", "Zoom out", () => this.#zoom(2)),
        button("←", "Earlier", () => this.#move(-0.5)), button("→", "Later", () => this.#move(0.5)),
        button("All", "All of the time of the tables", () => this.#whole()), this.open)),
      this.filters.element, this.problem, this.told, this.legend, this.stage, this.under,
      element("p", {id: "timeline-help", class: "quiet small-print"}, "Wheel or + and - zoom, arrows move, dragging or Shift and arrows select; " +
        "Enter or a double click opens the messages of the stretch, Escape leaves the selection."), this.figures.element, this.marks);
    this.#listen();
    this.watching = new ResizeObserver(() => this.chart.draw());
    this.watching.observe(this.stage);
    this.end = board.onTables((ids) => this.#grown(ids));
    this.keys = [
      ["+", "zoom in", () => this.#zoom(0.5)], ["-", "zoom out", () => this.#zoom(2)],
      ["ArrowLeft", "earlier (with Shift: select)", null], ["ArrowRight", "later (with Shift: select)", null],
      ["Enter", "the messages of the stretch", null], ["Escape", "leave the selection", () => this.#select(null)],
      ["0", "the whole of the tables", () => this.#whole()],
    ];
    this.show(parameters);
  }

  show(parameters) {
    this.parameters = parameters;
    this.filters.set(questionOf(parameters));
    this.#showBy();
    this.#load();
  }

  #showBy() {
    const chosen = this.parameters.getAll("table");
    const names = new Set(board.messageTables().filter((table) => chosen.length === 0 || chosen.includes(table.id))
      .flatMap((table) => table.texts).filter((name) => name));
    const by = this.parameters.get("by") ?? "";
    const choices = [["", "all together"], ["class", "class"], ["type", "type"], ["direction", "direction"],
                     ...[...names].map((name) => [name, name])];
    if (!choices.some(([name]) => name === by)) {
      choices.push([by, by]);
    }
    replace(this.by, choices.map(([name, text]) => element("option", {value: name}, text)));
    this.by.value = by;
  }

  #timeOf(name, filter) {
    const text = this.parameters.get(name);
    return text !== null && Number.isFinite(Number(text)) ? Number(text) : wholeDate(this.parameters.get(filter));
  }

  async #load() {
    clearTimeout(this.asking);
    const [from, until] = [this.#timeOf("from", "since"), this.#timeOf("to", "until")];
    if (this.chart.data && from !== null && until !== null) {
      [this.chart.from, this.chart.until] = [from, until];
      this.chart.draw();
    }
    try {
      const buckets = Math.min(Math.max(Math.round(this.chart.plotWidth / 4), 60), 400);
      const answer = await this.asker.ask("/api/timeline", changed(filtersWithout(this.parameters),
        {from, until, buckets, by: this.parameters.get("by")}));
      if (answer) {
        this.problem.hidden = true;
        this.#take(answer);
      }
    } catch (error) {
      this.problem.hidden = false;
      replace(this.problem, given(error.message, 600));
    }
  }

  #take(answer) {
    const chart = this.chart;
    chart.data = answer;
    [chart.from, chart.until] = [answer.from, answer.until];
    // One table with a unit is enough: what is stored without one is taken for milliseconds beside it.
    const asked = board.messageTables().filter((table) => table.messages > 0 &&
      (this.parameters.getAll("table").length === 0 || this.parameters.getAll("table").includes(table.id)));
    chart.isMoment = asked.length === 0 || asked.some((table) => table.timeUnit !== null);
    chart.draw();
    const total = answer.series.reduce((sum, one) => sum + one.counts.reduce((all, value) => all + value, 0), 0);
    const isEmpty = total === 0 && answer.until - answer.from <= 1;
    setText(this.told, isEmpty ? "There are no messages to show." :
      `${answer.estimate ? "About " : ""}${figures.counted(Math.round(total), "message", "messages")} from ${moment(answer.from, chart.isMoment)} ` +
      `to ${moment(answer.until, chart.isMoment)}` +
      (chart.isMoment ? ` (${zoneName()}), ${figures.duration(answer.step)} a bar.` : ", as the numbers are stored: nothing tells their unit.") +
      (answer.estimate ? ` The figures are an estimate, from the ranges of blocks and ${figures.count(answer.read)} messages that were read.` : "") +
      (answer.damage ? ` Not everything could be read: ${answer.damage}` : ""));
    this.#showLegend(answer);
    this.figures.show(answer, chart.isMoment);
    replace(this.marks, markTable(answer, chart.isMoment));
    this.#showOpen();
  }

  #showLegend(answer) {
    const isOne = answer.series.length === 1 && answer.series[0].name === "";
    replace(this.legend, isOne ? null : answer.series.map((one, i) => {
      const swatch = element("span", {class: "swatch", "aria-hidden": "true"});
      swatch.style.background = colour(seriesColour(i, one.name));
      const sum = one.counts.reduce((all, value) => all + value, 0);
      return element("li", {}, swatch, given(one.name === "-" ? "without" : one.name, 60), " ",
                     element("span", {class: "quiet"}, figures.count(Math.round(sum))));
    }));
  }

  // The stretch that Enter opens: what is selected, else what is shown.
  #stretch() {
    return this.chart.selection ?? {from: this.chart.from, until: this.chart.until};
  }

  #linkOf({from, until}) {
    const {isMoment} = this.chart;
    return linkTo("messages", changed(questionOf(this.parameters), {since: filterTime(Math.floor(from), isMoment),
                                                                    until: filterTime(Math.ceil(until), isMoment)}));
  }

  #showOpen() {
    this.open.href = this.#linkOf(this.#stretch());
    setText(this.open, this.chart.selection ? "Messages of the selection" : "Messages of this");
  }

  #select(selection) {
    this.chart.selection = selection;
    this.chart.draw();
    this.#showOpen();
  }

  // Shows another stretch at once with the bars that are there, and asks for better ones.
  #showStretch(from, until) {
    const span = Math.max(until - from, SHORTEST);
    [this.chart.from, this.chart.until] = [from, from + span];
    this.chart.draw();
    this.parameters = changed(this.parameters, {from: Math.floor(from), to: Math.ceil(from + span)});
    clearTimeout(this.asking);
    this.asking = setTimeout(() => {
      keep("timeline", this.parameters);
      this.#load();
    }, ASK_AFTER);
  }

  // Around a time; without one into the selection, or around the middle.
  #zoom(factor, around = null) {
    const {from, until, selection} = this.chart;
    if (around === null && selection && factor < 1) {
      this.chart.selection = null;
      this.#showStretch(selection.from, selection.until);
      return;
    }
    const center = around ?? (from + until) / 2;
    this.#showStretch(center - (center - from) * factor, center + (until - center) * factor);
  }

  #move(part) {
    const step = (this.chart.until - this.chart.from) * part;
    this.#showStretch(this.chart.from + step, this.chart.until + step);
  }

  #whole() {
    this.chart.selection = null;
    go("timeline", changed(this.parameters, {from: null, to: null, since: null, until: null}));
  }

  // With Shift the arrows move the end of the selection by a bar.
  #extend(direction) {
    const step = this.chart.data ? this.chart.data.step * 4 : 0;
    const now = this.chart.selection ?? {from: (this.chart.from + this.chart.until) / 2, until: (this.chart.from + this.chart.until) / 2};
    const until = now.until + direction * step;
    this.#select(until > now.from ? {from: now.from, until} : {from: until, until: now.from});
    setText(this.under, `Selected: ${moment(this.chart.selection.from, this.chart.isMoment)} to ${moment(this.chart.selection.until, this.chart.isMoment)}`);
  }

  #listen() {
    const x = (event) => event.clientX - this.canvas.getBoundingClientRect().left;
    const y = (event) => event.clientY - this.canvas.getBoundingClientRect().top;
    this.stage.addEventListener("wheel", (event) => {
      event.preventDefault();
      this.#zoom(event.deltaY < 0 ? 0.75 : 1.33, this.chart.timeAt(x(event)));
    }, {passive: false});
    let begun = null;
    this.stage.addEventListener("pointerdown", (event) => {
      begun = event.button === 0 && event.pointerType !== "touch" ? {x: x(event), time: this.chart.timeAt(x(event))} : null;
    });
    this.stage.addEventListener("pointermove", (event) => {
      const time = this.chart.timeAt(x(event));
      if (begun && (this.chart.selection?.isDragged || Math.abs(x(event) - begun.x) > 3)) {
        if (!this.stage.hasPointerCapture(event.pointerId)) {
          this.stage.setPointerCapture(event.pointerId);
        }
        this.chart.selection = {from: Math.min(begun.time, time), until: Math.max(begun.time, time), isDragged: true};
        this.#showOpen();
      }
      this.chart.hover = time;
      this.chart.draw();
      this.#tellUnder(x(event), y(event), time);
    });
    this.stage.addEventListener("pointerup", (event) => {
      if (begun && Math.abs(x(event) - begun.x) <= 3 && !this.chart.selection?.isDragged) {
        this.#select(null);
      } else if (this.chart.selection) {
        this.chart.selection.isDragged = false;
      }
      begun = null;
    });
    this.stage.addEventListener("pointerleave", () => {
      this.chart.hover = null;
      this.chart.draw();
    });
    this.stage.addEventListener("dblclick", (event) => {
      const bucket = this.chart.bucketAt(this.chart.timeAt(x(event)));
      if (bucket) {
        location.hash = this.#linkOf(bucket);
      }
    });
    this.stage.addEventListener("keydown", (event) => this.#key(event));
  }

  #key(event) {
    if (event.ctrlKey || event.altKey || event.metaKey || !["ArrowLeft", "ArrowRight", "Enter"].includes(event.key)) {
      return;
    }
    event.preventDefault();
    const direction = event.key === "ArrowLeft" ? -1 : 1;
    if (event.key === "Enter") {
      location.hash = this.#linkOf(this.#stretch());
    } else if (event.shiftKey) {
      this.#extend(direction);
    } else {
      this.#move(direction * 0.2);
    }
  }

  #tellUnder(x, y, time) {
    const mark = this.chart.markAt(x, y);
    const bucket = this.chart.bucketAt(time);
    const {isMoment} = this.chart;
    setText(this.under, mark ? `${mark.table}: ${mark.text}` : bucket
      ? `${moment(bucket.from, isMoment)}: ${figures.count(Math.round(bucket.total))}` +
        (bucket.parts.length > 1 ? ` (${bucket.parts.map(([name, value]) => `${name} ${figures.count(Math.round(value))}`).join(", ")})` : "")
      : "\u00a0");
  }

  #grown(ids) {
    const chosen = this.parameters.getAll("table");
    if (chosen.length > 0 && !chosen.some((id) => ids.has(id))) {
      return;
    }
    this.#showBy();
    if (!this.renewing && !this.parameters.has("to")) {
      this.renewing = setTimeout(() => {
        this.renewing = 0;
        this.#load();
      }, RENEW_AFTER);
    }
  }

  redraw() {
    if (this.chart.data) {
      this.#take(this.chart.data);
    }
  }

  leave() {
    clearTimeout(this.asking);
    clearTimeout(this.renewing);
    this.asker.stop();
    this.end();
    this.watching.disconnect();
    this.filters.leave();
  }
}

export const timelineView = {name: "timeline", title: "Timeline", make: (host, parameters) => new Timeline(host, parameters)};
