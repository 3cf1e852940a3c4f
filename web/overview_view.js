// Overview: every served table with what an operator asks first: is it alive, what came last, is anything missing or
// broken. Rows are changed in place as the tables change, and their ages every second.
import {linkTo} from "./address.js";
import * as board from "./board.js";
import {element, replace, setText, given} from "./elements.js";
import * as figures from "./figures.js";
import {dayChart} from "./day_chart.js";
import {moment, clock, zoneName} from "./times.js";

// Behind so many milliseconds without a message a table that is written counts as quiet.
const QUIET = 60000;

const COLUMNS = ["Table", "Messages", "Last message", "Rate now", "The day up to its last message", "Sent", "Received",
                 "Gaps", "Pending", "Writer", "Damage"];

const badge = (kind, text, title = null) => element("span", {class: `badge ${kind}`, title}, text);

// The newest message with a number in one direction.
function lastCell(last, isMoment) {
  return last === null ? "-" : [element("span", {class: "figure strong"}, figures.count(last.seq)), " ",
                                given(last.type, 8, {class: "given quiet"}),
                                element("span", {class: "under"}, clock(last.time, isMoment))];
}

function pendingCell(table) {
  if (!table.lastPending) {
    return "none";
  }
  const first = table.firstPending;
  return [element("span", {class: "figure"}, `${table.lastPending.seq}`),
          element("span", {class: "under"}, first ? `sent up to ${first.seq}` : "none sent yet")];
}

function gapCell(table) {
  const text = figures.count(table.gaps);
  const gaps = table.gaps > 0
      ? element("a", {href: linkTo("timeline", {table: table.id}), class: "badge warn"}, text) : text;
  return [gaps, table.resends > 0 ? element("span", {class: "under"}, `${figures.count(table.resends)} resent`) : null,
          table.marksComplete ? null : element("span", {class: "under"}, "still looking")];
}

function stateCell(table) {
  const told = [];
  if (table.damage) {
    told.push(element("a", {href: linkTo("blocks", {table: table.id}), class: "badge bad"}, "Damaged"),
              given(table.damage, 160, {class: "given under"}));
  } else if (table.kind === "messages" && !table.closedCleanly && table.writer === "no") {
    told.push(badge("warn", "not closed cleanly", "The next writer recovers it"));
  } else {
    told.push(badge("good", "none met", "Nothing that is damaged was met so far; the view Blocks checks everything"));
  }
  return told;
}

class TableRow {
  constructor(table) {
    this.cells = COLUMNS.map((label, i) =>
      element(i === 0 ? "th" : "td", {role: i === 0 ? "rowheader" : "cell", scope: i === 0 ? "row" : null, "data-label": label}));
    this.age = element("span", {class: "strong"});
    this.ageTime = element("span", {class: "under"});
    this.row = element("tr", {role: "row"}, this.cells);
    this.update(table);
  }

  update(table) {
    this.table = table;
    const isMoment = table.timeUnit !== null;
    const [name, messages, age, rate, day, sent, received, gaps, pending, writer, state] = this.cells;
    const link = element("a", {href: linkTo("messages", {table: table.id}), class: "table-name"}, given(table.id, 60));
    if (name.firstChild === null) {
      replace(name, link, element("span", {class: "under"}));
    }
    setText(name.querySelector(".under"), figures.bytes(table.size) + (table.index ? ", side index" : ""));
    setText(messages, figures.count(table.messages));
    setText(rate, table.rate > 0 ? `${figures.rate(table.rate)}/s` : "0");
    rate.classList.toggle("quiet", !table.rate);
    replace(age, this.age, this.ageTime);
    setText(this.ageTime, table.lastTime === null ? "" : moment(table.lastTime, isMoment));
    replace(day, dayChart(table.day, isMoment));
    replace(sent, lastCell(table.lastSent, isMoment));
    replace(received, lastCell(table.lastReceived, isMoment));
    replace(gaps, gapCell(table));
    replace(pending, pendingCell(table));
    replace(writer, table.writer === "yes" ? badge("good", "Writing") : table.writer === "no" ? "none" : "unknown");
    replace(state, stateCell(table));
    this.tick();
  }

  tick() {
    const {lastTime, timeUnit, writer} = this.table;
    const age = lastTime !== null && timeUnit !== null ? Math.max(board.serverNow() - lastTime, 0) : null;
    setText(this.age, lastTime === null ? "no message yet" : age === null ? "-" : `${ageText(age)} ago`);
    this.age.classList.toggle("late", writer === "yes" && age !== null && age > QUIET);
  }
}

// Whole seconds, so that it ticks evenly.
function ageText(age) {
  return age < 60000 ? `${Math.floor(age / 1000)} s` : figures.duration(age);
}

function sessionCard(table) {
  return element("section", {class: "card"},
                 element("h3", {}, given(table.id, 80)),
                 table.damage ? element("p", {}, badge("bad", "Damaged"), " ", given(table.damage, 300)) : null,
                 element("dl", {class: "values"}, table.values.map(({tag, value}) =>
                   element("div", {}, element("dt", {}, `Tag ${tag}`), element("dd", {class: "figure"}, figures.count(value))))),
                 table.values.length === 0 ? element("p", {class: "quiet"}, "It holds no values.") : null);
}

class Overview {
  constructor(host) {
    this.rows = new Map();
    this.body = element("tbody", {role: "rowgroup"});
    this.table = element("table", {class: "tables", role: "table", "aria-label": "Message tables"},
      element("thead", {role: "rowgroup"}, element("tr", {role: "row"}, COLUMNS.map((name) =>
        element("th", {scope: "col", role: "columnheader"}, name)))), this.body);
    this.note = element("p", {class: "lead"});
    this.problems = element("ul", {class: "problems"});
    this.sessions = element("div", {class: "cards"});
    this.sessionPart = element("section", {"aria-labelledby": "session-title"},
                               element("h2", {id: "session-title"}, "Session info tables"), this.sessions);
    replace(host, element("h1", {}, "Overview"), this.note, this.problems, this.table, this.sessionPart);
    this.end = board.onTables(() => this.update());
    this.timer = setInterval(() => this.rows.forEach((row) => row.tick()), 1000);
    this.keys = [];
    this.update();
  }

  show() {}

  redraw() {
    this.update(true);
  }

  update(isWhole = false) {
    const tables = board.allTables();
    const messageTables = tables.filter((table) => table.kind === "messages");
    const sessions = tables.filter((table) => table.kind === "session");
    const total = messageTables.reduce((sum, table) => sum + table.messages, 0);
    setText(this.note, !board.isKnown() ? "Waiting for the server."
      : tables.length === 0 ? "There are no tables in the folders yet; they appear here by themselves."
      : `${figures.counted(messageTables.length, "message table", "message tables")} with ` +
        `${figures.counted(total, "message", "messages")}. Times are ${zoneName()}.`);
    replace(this.problems, board.problemsTold().map((problem) => element("li", {}, given(problem, 400))));
    this.table.hidden = messageTables.length === 0;
    this.sessionPart.hidden = sessions.length === 0;
    this.updateRows(messageTables, isWhole);
    replace(this.sessions, sessions.map(sessionCard));
  }

  updateRows(tables, isWhole) {
    const ids = new Set(tables.map((table) => table.id));
    for (const [id, row] of this.rows) {
      if (!ids.has(id)) {
        row.row.remove();
        this.rows.delete(id);
      }
    }
    let before = null;
    for (const table of tables) {
      let row = this.rows.get(table.id);
      if (!row) {
        row = new TableRow(table);
        this.rows.set(table.id, row);
      } else if (row.table !== table || isWhole) {
        row.update(table);
      }
      const place = before ? before.nextSibling : this.body.firstChild;
      if (place !== row.row) {
        this.body.insertBefore(row.row, place);
      }
      before = row.row;
    }
  }

  leave() {
    this.end();
    clearInterval(this.timer);
  }
}

export const overviewView = {name: "overview", title: "Overview", make: (host) => new Overview(host)};
