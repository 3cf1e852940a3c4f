// Order: the life of one order over all tables, as a sequence diagram and as a table, and how it ended. In the address: id,
// id-is, tables.
import {changed, go, linkTo} from "./address.js";
import {copyButton, element, given, replace} from "./elements.js";
import * as figures from "./figures.js";
import {keyOf} from "./message_list.js";
import {directionOf, isMomentOf, typeWords} from "./message_row.js";
import {MOST_ARROWS, orderDiagram} from "./order_diagram.js";
import {stepFigures, stepStatus} from "./order_steps.js";
import {Asker} from "./server.js";
import {clock, dayOf, moment, zoneName} from "./times.js";

const OF_SEARCH = ["clOrdIds", "tables", "messages", "reports", "firstTime", "lastTime", "statusName"];

function stepRow(step, i, before) {
  const direction = directionOf(step);
  const changes = (step.changes ?? []).map((one, n) => [n > 0 ? ", " : "",
    element("span", {class: "quiet"}, given(one.field, 30)), " ",
    one.before !== null ? [given(one.before, 40), " → "] : null, given(one.after, 40)]);
  const link = linkTo("messages", {table: step.table, from: step.at, m: keyOf(step)});
  return element("tr", {id: `step-${i}`, tabindex: "-1"},
    element("td", {class: "number"}, String(i + 1)),
    element("td", {class: "mono"}, element("a", {href: link}, clock(step.t, isMomentOf(step))),
            element("span", {class: "under"}, before ? `+${figures.duration(Math.max(step.t - before.t, 0))}` : dayOf(step.t, isMomentOf(step)))),
    element("td", {}, element("span", {class: `badge ${direction}`}, direction === "neither" ? "no class" : direction),
            step.isLate ? [" ", element("span", {class: "badge warn", title: "It tells an older state than what came before"}, "late")] : null,
            step.possDup ? [" ", element("span", {class: "badge warn"}, "dup")] : null),
    element("td", {}, given(typeWords(step), 40), element("span", {class: "under"}, given(stepStatus(step), 60))),
    element("td", {}, given(stepFigures(step), 100)),
    element("td", {}, changes.length > 0 ? changes : element("span", {class: "quiet"}, "nothing")));
}

function finalState(answer) {
  const {state} = answer;
  const isMoment = answer.steps.some(isMomentOf);
  const values = Object.entries(state).filter(([name]) => !OF_SEARCH.includes(name));
  // The names of values stand in the steps that had them.
  const nameOf = (name, value) => answer.steps.find((step) => step.values[name] === value && step.names[name])?.names[name];
  const text = (name, value) => [String(value), nameOf(name, value)].filter(Boolean).join(" ");
  const status = state.statusName ?? (state.reports > 0 ? state.OrdStatus : null);
  return element("section", {class: "card state", "aria-labelledby": "state-title"},
    element("h2", {id: "state-title"}, "How it stands: ", status ? given(status, 60) : "no report has told"),
    element("dl", {class: "values"},
      values.map(([name, value]) => element("div", {}, element("dt", {}, given(name, 40)), element("dd", {}, given(text(name, value), 120)))),
      element("div", {}, element("dt", {}, "First message"), element("dd", {}, moment(state.firstTime, isMoment))),
      element("div", {}, element("dt", {}, "Last message"), element("dd", {}, moment(state.lastTime, isMoment))),
      element("div", {}, element("dt", {}, "Lasted"), element("dd", {}, isMoment ? figures.duration(state.lastTime - state.firstTime) : "-"))));
}

class Order {
  constructor(host, parameters) {
    this.asker = new Asker();
    this.answer = null;
    this.field = element("input", {id: "order-of-view", size: "28", autocomplete: "off", spellcheck: "false", maxlength: "400"});
    this.kind = element("select", {id: "order-id-is"}, ["any", "ClOrdID", "OrderID"].map((kind) =>
      element("option", {value: kind}, kind === "any" ? "any of its ids" : kind)));
    this.told = element("p", {role: "status"});
    this.content = element("div", {});
    this.stage = element("div", {class: "stage-of-order"});
    replace(host, element("h1", {}, "Order"), element("form", {class: "row", onsubmit: (event) => {
      event.preventDefault();
      go("order", changed(this.parameters, {id: this.field.value.trim(), "id-is": this.kind.value === "any" ? null : this.kind.value}));
    }}, element("label", {class: "together"}, "Id", this.field), element("label", {class: "together"}, "which is", this.kind),
        element("button", {class: "main"}, "Show")), this.told, this.content);
    this.watching = new ResizeObserver(() => this.#drawDiagram());
    this.watching.observe(this.stage);
    this.keys = [["r", "ask again", () => this.#load()]];
    this.show(parameters);
  }

  show(parameters) {
    this.parameters = parameters;
    this.field.value = parameters.get("id") ?? "";
    this.kind.value = parameters.get("id-is") ?? "any";
    this.#load();
  }

  async #load() {
    const id = this.parameters.get("id");
    this.answer = null;
    replace(this.content);
    if (!id) {
      replace(this.told, "Which order? Paste a ClOrdID or OrderID here, or into the box above from anywhere (key / ).");
      return;
    }
    replace(this.told, "Looking for the order.");
    try {
      const answer = await this.asker.ask("/api/order", {id, "id-is": this.parameters.get("id-is"), table: this.parameters.getAll("table")});
      if (answer) {
        this.answer = answer;
        this.#draw();
      }
    } catch (error) {
      replace(this.told);
      replace(this.content, element("p", {class: "error", role: "alert"}, given(error.message, 600)));
    }
  }

  #draw() {
    const {answer} = this;
    const {state, steps} = answer;
    replace(this.told, given(answer.id, 80, {class: "given strong"}), `: ${figures.counted(state.messages, "message", "messages")} of ` +
      `${figures.counted(state.tables, "table", "tables")}, ${figures.counted(state.reports, "report", "reports")}, ` +
      `${figures.counted(state.clOrdIds, "ClOrdID", "ClOrdIDs")}. Times are ${zoneName()}. `, copyButton("Copy command", () => answer.command));
    const heads = ["#", "Time", "Direction", "Message", "Figures", "What it changes"];
    replace(this.content,
      answer.more ? element("p", {class: "note"}, `Only the first ${figures.count(steps.length)} steps are shown; the command has all.`) : null,
      element("div", {class: "order-parts"}, finalState(answer),
        element("section", {class: "card", "aria-labelledby": "diagram-title"}, element("h2", {id: "diagram-title"}, "Step by step"), this.stage,
          steps.length > MOST_ARROWS ? element("p", {class: "quiet"}, `The diagram has the first ${MOST_ARROWS} steps; the table has all.`) : null),
        element("section", {class: "card wide", "aria-labelledby": "steps-title"}, element("h2", {id: "steps-title"}, "The steps as a table"),
          element("div", {class: "scroll", tabindex: "0", role: "group", "aria-label": "Table of the steps, which scrolls"},
            element("table", {class: "stack"}, element("thead", {}, element("tr", {}, heads.map((name) => element("th", {scope: "col"}, name)))),
              element("tbody", {}, steps.map((step, i) => stepRow(step, i, i > 0 ? steps[i - 1] : null))))))));
    this.#drawDiagram();
  }

  #drawDiagram() {
    const width = this.stage.clientWidth;
    if (this.answer && width > 0 && (this.drawn !== this.answer || this.drawnWidth !== width)) {
      [this.drawn, this.drawnWidth] = [this.answer, width];
      replace(this.stage, orderDiagram(this.answer.steps, width, (i) => {
        const row = document.getElementById(`step-${i}`);
        row?.scrollIntoView({block: "center"});
        row?.focus();
      }));
    }
  }

  redraw() {
    this.drawn = null;
    if (this.answer) {
      this.#draw();
    }
  }

  leave() {
    this.asker.stop();
    this.watching.disconnect();
  }
}

export const orderView = {name: "order", title: "Order", make: (host, parameters) => new Order(host, parameters)};
