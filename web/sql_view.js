// SQL: a statement over the tables, and its rows. In the address: q. Ctrl+Enter runs; a statement of an address is shown, and
// run only when somebody asks for that.
import {changed, keep} from "./address.js";
import * as board from "./board.js";
import {copyButton, element, given, replace} from "./elements.js";
import * as figures from "./figures.js";
import {bytesAsText, wireBytes} from "./hex_dump.js";
import {post} from "./server.js";

const LONGEST = 4096;  // letters of a cell; no value of the server has more
const BEGIN = "SELECT type, count(*) AS messages FROM TABLE GROUP BY type ORDER BY messages DESC";

// A table's name as SQL takes it.
function quoted(name) {
  return /^[A-Za-z_][A-Za-z0-9_]*$/.test(name) ? name : `"${name.replaceAll("\"", "\"\"")}"`;
}

// A value as text: bytes that are no text stay Base64.
function asText(value) {
  return value === null ? "" : typeof value === "object" ? `base64:${value.base64}` : String(value);
}

function asCsv(columns, rows) {
  const cell = (value) => {
    const text = asText(value);
    return /[",\r\n]/.test(text) ? `"${text.replaceAll("\"", "\"\"")}"` : text;
  };
  return [columns, ...rows].map((row) => row.map(cell).join(",")).join("\r\n") + "\r\n";
}

function cellOf(value) {
  if (value === null) {
    return element("td", {class: "quiet"}, "null");
  }
  if (typeof value === "number") {
    return element("td", {class: "number"}, String(value));
  }
  const text = typeof value === "object" ? bytesAsText(wireBytes(value.base64)) : value;
  return element("td", {class: typeof value === "object" ? "mono" : null}, given(text, LONGEST));
}

class Sql {
  constructor(host, parameters) {
    this.statement = element("textarea", {id: "statement", rows: "5", spellcheck: "false", autocomplete: "off", "aria-describedby": "sql-help",
                                          onkeydown: (event) => {
      if (event.key === "Enter" && (event.ctrlKey || event.metaKey)) {
        event.preventDefault();
        this.#run();
      }
    }});
    this.button = element("button", {type: "button", class: "main", onclick: () => this.#run()}, "Run");
    this.stop = element("button", {type: "button", hidden: true, onclick: () => this.running?.abort()}, "Stop waiting");
    this.told = element("p", {role: "status"});
    this.result = element("div", {});
    this.tables = element("ul", {class: "table-names"});
    replace(host, element("h1", {}, "SQL"), element("label", {for: "statement"}, "One statement that SELECTs from the tables"), this.statement,
      element("div", {class: "row"}, this.button, this.stop, element("span", {id: "sql-help", class: "quiet"},
        "Ctrl+Enter runs it. It may take 10 s and give 1,000 rows.")),
      element("details", {class: "filter-box"}, element("summary", {}, "Tables and their fields"), this.tables), this.told, this.result);
    this.keys = [["e", "write the statement", () => this.statement.focus()], ["Ctrl+Enter", "run it", null]];
    this.end = board.onTables(() => this.#showTables());
    this.show(parameters);
    this.#showTables();
  }

  show(parameters) {
    this.parameters = parameters;
    if (parameters.has("q")) {
      this.statement.value = parameters.get("q");
    }
  }

  #showTables() {
    const tables = board.allTables();
    const names = tables.map((table) => `${table.id} ${table.texts ?? ""}`).join("\n");
    if (names === this.names) {
      return;
    }
    this.names = names;
    const first = board.messageTables()[0];
    if (this.statement.value === "" && first) {
      this.statement.value = BEGIN.replace("TABLE", () => quoted(first.name));
    }
    replace(this.tables, tables.map((table) => element("li", {}, element("button", {type: "button", class: "plain", onclick: () => {
      this.statement.setRangeText(quoted(table.name), this.statement.selectionStart, this.statement.selectionEnd, "end");
      this.statement.focus();
    }}, given(quoted(table.name), 80)), " ", element("span", {class: "quiet"}, given(
      table.kind === "session" ? "tag, value" : [...table.texts, ...table.numbers].filter((name) => name).join(", "), 300)))));
  }

  async #run() {
    const statement = this.statement.value.trim();
    if (!statement || this.running) {
      return;
    }
    this.parameters = changed(this.parameters, {q: statement});
    keep("sql", this.parameters);
    this.running = new AbortController();
    this.button.disabled = true;
    this.stop.hidden = false;
    replace(this.told, "Running.");
    replace(this.result);
    try {
      this.#showRows(await post("/api/sql", {table: this.parameters.getAll("table")}, statement, this.running.signal));
    } catch (error) {
      replace(this.told);
      replace(this.result, element("p", {class: "error", role: "alert"},
                                   given(error.name === "AbortError" ? "Nobody waits for it any more." : error.message, 2000)));
    }
    this.running = null;
    this.button.disabled = false;
    this.stop.hidden = true;
  }

  #showRows({columns, rows, more, seconds}) {
    replace(this.told, `${figures.counted(rows.length, "row", "rows")} in ${figures.duration(seconds * 1000)}` +
      `${more ? "; there are more, which are not shown" : ""}. `,
      copyButton("Copy as CSV", () => asCsv(columns, rows)));
    const rowsTable = element("table", {class: "rows"}, element("thead", {}, element("tr", {}, columns.map((name) =>
      element("th", {scope: "col"}, given(name, 80))))), element("tbody", {}, rows.map((row) => element("tr", {}, row.map(cellOf)))));
    const wrap = element("input", {type: "checkbox", onchange: () => rowsTable.classList.toggle("whole", wrap.checked)});
    replace(this.result, element("p", {}, element("label", {class: "box"}, wrap, " Show long values whole")),
      element("div", {class: "scroll", tabindex: "0", role: "region", "aria-label": "Rows"}, rowsTable));
  }

  leave() {
    this.running?.abort();
    this.end();
  }
}

export const sqlView = {name: "sql", title: "SQL", make: (host, parameters) => new Sql(host, parameters)};
