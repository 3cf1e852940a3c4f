// The form that chooses tables and messages, by the names of the command's options (docs/command.md): the same names stand in
// the address and in what the server is asked.
import * as board from "./board.js";
import {element, given, replace, setText} from "./elements.js";

const CLASSES = ["APP_TO", "APP_FROM", "ADMIN_TO", "ADMIN_FROM", "RESENT"];
const NAMES = ["class", "type", "not-type", "seq", "uid", "id", "since", "until", "poss-dup", "where", "text"];
const LISTS = ["type", "not-type", "seq", "uid", "id"];  // whose values commas part

// [name, label, placeholder]
const FIELDS = [
  ["type", "Types", "D,8"],
  ["not-type", "Not types", "0,1"],
  ["seq", "Sequence numbers", "100..200"],
  ["since", "Since (UTC)", "2026-11-20T19:31:45 or -10m"],
  ["until", "Before (UTC)", "19:45"],
  ["text", "Words in the message", "text of the wire message"],
  ["uid", "Uniform ids", "1..500"],
  ["id", "Message ids", "1..500"],
];

// The filters of an address, as pairs, of which the server takes one value each.
export function filterPairs(parameters) {
  return [...parameters].filter(([name]) => NAMES.includes(name)).flatMap(([name, value]) =>
    (LISTS.includes(name) ? value.split(",") : [value]).map((one) => [name, one.trim()])).filter(([, value]) => value !== "");
}

// What the server is asked for: tables, filters, merge.
export function questionOf(parameters) {
  const tables = parameters.getAll("table").map((id) => ["table", id]);
  const merge = parameters.get("merge") ? [["merge", parameters.get("merge")]] : [];
  return new URLSearchParams([...tables, ...filterPairs(parameters), ...merge]);
}

export class Filters {
  // Calls chosen(URLSearchParams) with tables and filters when the form is sent.
  constructor(chosen) {
    this.chosen = chosen;
    this.summary = element("span", {class: "chosen"});
    this.tables = element("fieldset", {class: "tables-choice"});
    this.inputs = new Map(FIELDS.map(([name, , placeholder]) =>
      [name, element("input", {name, id: `filter-${name}`, placeholder, autocomplete: "off", spellcheck: "false"})]));
    this.conditions = element("div", {class: "conditions"});
    this.classes = new Map(CLASSES.map((name) => [name, element("input", {type: "checkbox", value: name})]));
    this.possDup = element("select", {id: "filter-poss-dup"}, element("option", {value: ""}, "with others"),
                           element("option", {value: "yes"}, "only these"), element("option", {value: "no"}, "none of them"));
    this.merge = element("select", {id: "filter-merge"}, element("option", {value: ""}, "uniform id"),
                         element("option", {value: "time"}, "time"));
    this.form = this.#makeForm();
    this.element = element("details", {class: "filter-box"}, element("summary", {}, "Tables and filters: ", this.summary), this.form);
    this.ids = null;
    this.parameters = new URLSearchParams();
    this.end = board.onTables(() => this.#updateTables());
    this.#updateTables();
  }

  #makeForm() {
    const labelled = (id, label, input) => element("div", {class: "labelled"}, element("label", {for: id}, label), input);
    return element("form", {class: "filters", onsubmit: (event) => {
      event.preventDefault();
      this.#send();
    }},
      this.tables,
      element("fieldset", {}, element("legend", {}, "Classes"), element("div", {class: "row"},
        [...this.classes].map(([name, box]) => element("label", {class: "box"}, box, name)))),
      element("fieldset", {class: "where"}, element("legend", {}, "Conditions, all of which must hold"), this.conditions,
        element("button", {type: "button", class: "small", onclick: () => this.#addCondition("").focus()}, "One more")),
      element("div", {class: "field-grid"},
        FIELDS.map(([name, label]) => labelled(`filter-${name}`, label, this.inputs.get(name))),
        labelled("filter-poss-dup", "Possible duplicates", this.possDup),
        labelled("filter-merge", "Order of several tables by", this.merge)),
      element("div", {class: "row"}, element("button", {class: "main"}, "Show"),
        element("button", {type: "button", onclick: () => {
          this.set(new URLSearchParams(this.parameters.getAll("table").map((id) => ["table", id])));
          this.#send();
        }}, "Without filters")));
  }

  #addCondition(value) {
    const input = element("input", {"aria-label": "Condition", placeholder: "Symbol=ACME  or  tag:54=1", autocomplete: "off", spellcheck: "false"});
    input.value = value;
    this.conditions.append(input);
    return input;
  }

  // Makes the boxes anew when there are other tables; what is ticked stays.
  #updateTables() {
    const ids = board.messageTables().map((table) => table.id);
    if (this.ids === null || ids.join("\n") !== this.ids.join("\n")) {
      this.ids = ids;
      const chosen = new Set(this.parameters.getAll("table"));
      replace(this.tables, element("legend", {}, "Tables (none ticked: all)"), element("div", {class: "row"}, ids.map((id) => {
        const box = element("input", {type: "checkbox", value: id});
        box.checked = chosen.has(id);
        return element("label", {class: "box"}, box, given(id, 60));
      })));
    }
  }

  // Shows what an address chooses.
  set(parameters) {
    this.parameters = parameters;
    this.ids = null;
    this.#updateTables();
    for (const [name, input] of this.inputs) {
      input.value = parameters.getAll(name).join(LISTS.includes(name) ? "," : " ");
    }
    replace(this.conditions);
    for (const condition of [...parameters.getAll("where"), ...(parameters.has("where") ? [] : [""])]) {
      this.#addCondition(condition);
    }
    for (const [name, box] of this.classes) {
      box.checked = parameters.getAll("class").includes(name);
    }
    this.possDup.value = parameters.get("poss-dup") ?? "";
    this.merge.value = parameters.get("merge") ?? "";
    this.#summarize();
  }

  #summarize() {
    const tables = this.parameters.getAll("table");
    const pairs = filterPairs(this.parameters);
    const words = pairs.map(([name, value]) => name === "where" ? value : `${name} ${value}`);
    setText(this.summary, [tables.length === 0 ? "all tables" : tables.join(", "), ...words].join("; "));
  }

  #send() {
    const query = new URLSearchParams();
    const add = (name, value) => value.trim() && query.append(name, value.trim());
    this.tables.querySelectorAll("input:checked").forEach((box) => query.append("table", box.value));
    this.classes.forEach((box, name) => box.checked && query.append("class", name));
    for (const [name, input] of this.inputs) {
      (LISTS.includes(name) ? input.value.split(",") : [input.value]).forEach((value) => add(name, value));
    }
    this.conditions.querySelectorAll("input").forEach((input) => add("where", input.value));
    add("poss-dup", this.possDup.value);
    add("merge", this.merge.value);
    this.element.open = false;
    this.chosen(query);
  }

  leave() {
    this.end();
  }
}
