// Blocks: the file of a table as a map, the numbers of one block, and a verification whose findings appear on the map. In the
// address: table, by, block (its number).
import {changed, go, keep, linkTo} from "./address.js";
import * as board from "./board.js";
import {BlockMap} from "./block_map.js";
import {element, given, replace, setText} from "./elements.js";
import * as figures from "./figures.js";
import {Asker} from "./server.js";
import {moment, zoneName} from "./times.js";
import {Verifying} from "./verifying.js";

const PAGE = 20000;    // blocks of one question
const MOST = 400000;   // blocks of one map
// What stands where in a block of /api/blocks.
const [NUMBER, OFFSET, LENGTH, CLOSED, MESSAGES, FIRST_TIME, LAST_TIME, FIRST_UID, LAST_UID, BITS] = [...Array(10).keys()];

class Blocks {
  constructor(host, parameters) {
    this.asker = new Asker();
    this.findings = [];
    this.table = element("select", {id: "blocks-table", onchange: () => go("blocks", {table: this.table.value})});
    this.by = element("select", {id: "blocks-by", onchange: () => go("blocks", changed(this.parameters, {by: this.by.value}))});
    this.verify = element("button", {type: "button", class: "main small", onclick: () => this.#startVerifying()}, "Verify the table");
    this.told = element("p", {role: "status"});
    this.scale = element("p", {class: "quiet small-print"});
    this.problem = element("p", {class: "error", role: "alert", hidden: true});
    this.canvas = element("canvas", {});
    this.stage = element("div", {class: "map", tabindex: "0", role: "application", "aria-roledescription": "map of blocks",
                                 "aria-label": "Blocks of the file; arrows move from block to block", "aria-describedby": "block-title"}, this.canvas);
    this.map = new BlockMap(this.canvas);
    this.block = element("section", {class: "card", "aria-live": "polite"});
    this.progress = element("progress", {max: "1", value: "0", hidden: true, "aria-label": "How far the verification is"});
    this.verdict = element("p", {role: "status"});
    this.list = element("ul", {class: "findings"});
    replace(host, element("div", {class: "row spread"}, element("h1", {}, "Blocks"), element("div", {class: "row"},
        element("label", {class: "together"}, "Table", this.table), element("label", {class: "together"}, "Coloured by", this.by), this.verify)),
      this.problem, this.told, this.progress, this.verdict, this.list,
      element("div", {class: "map-parts"}, element("div", {class: "card"}, this.stage, this.scale), this.block));
    this.#listen();
    this.watching = new ResizeObserver(() => this.map.draw());
    this.watching.observe(this.stage);
    this.end = board.onTables((ids) => this.#grown(ids));
    this.keys = [["v", "verify the table", () => this.#startVerifying()],
                 ["ArrowRight", "the next block, while the map has the focus", null], ["Enter", "the messages of the block", null]];
    this.show(parameters);
  }

  show(parameters) {
    const ids = board.messageTables().map((table) => table.id);
    this.parameters = parameters.has("table") || ids.length === 0 ? parameters : changed(parameters, {table: ids[0]});
    const id = this.parameters.get("table");
    replace(this.table, [...new Set([...ids, ...(id ? [id] : [])])].map((one) => element("option", {value: one}, one)));
    this.table.value = id ?? "";
    if (id === null) {
      setText(this.told, board.isKnown() ? "There are no message tables." : "Waiting for the server.");
    } else if (id !== this.id) {
      this.id = id;
      this.#leaveVerifying();
      this.map.blocks = [];
      this.#load();
    } else {
      this.#draw();
    }
  }

  async #load() {
    const blocks = [];
    let answer = null;
    this.problem.hidden = true;
    try {
      do {
        answer = await this.asker.ask("/api/blocks", {table: this.id, from: blocks.length, limit: PAGE});
        if (!answer) {
          return;
        }
        blocks.push(...answer.blocks);
        setText(this.told, `Loading: ${figures.count(blocks.length)} of ${figures.count(answer.total)} blocks.`);
      } while (answer.blocks.length > 0 && blocks.length < answer.total && blocks.length < MOST);
      this.answer = answer;
      this.map.blocks = blocks;
      this.#draw();
    } catch (error) {
      this.problem.hidden = false;
      replace(this.problem, given(error.message, 600));
      setText(this.told, "");
    }
  }

  #choices() {
    const filters = this.answer.filterNames.map((name, i) => [`filter-${i}`, `fill of filter ${name}`]);
    return [["size", "size"], ["messages", "messages"], ["time", "time it covers"], ["pace", "messages a second"], ...filters];
  }

  #valueOf(by) {
    const isMoment = board.tableOf(this.id)?.timeUnit !== null;
    if (by === "messages") {
      return (block) => block[MESSAGES];
    }
    if (by === "time") {
      return (block) => block[LAST_TIME] - block[FIRST_TIME];
    }
    if (by === "pace") {
      return (block) => block[MESSAGES] / Math.max((block[LAST_TIME] - block[FIRST_TIME]) / (isMoment ? 1000 : 1), 0.001);
    }
    if (by.startsWith("filter-")) {
      const place = Number(by.slice("filter-".length));
      return (block) => block[CLOSED] ? block[BITS][place] ?? null : null;
    }
    return (block) => block[LENGTH];
  }

  #words(by, value) {
    return by === "size" ? figures.bytes(value) : by === "time" ? figures.duration(value) : by === "pace" ? `${figures.rate(value)}/s`
      : by.startsWith("filter-") ? figures.percent(value, this.answer.filterBits) : figures.count(value);
  }

  #draw() {
    if (!this.answer) {
      return;
    }
    const choices = this.#choices();
    const asked = this.parameters.get("by") ?? "size";
    const by = choices.some(([name]) => name === asked) ? asked : "size";
    replace(this.by, choices.map(([name, words]) => element("option", {value: name}, words)));
    this.by.value = by;
    this.map.valueOf = this.#valueOf(by);
    const {blocks} = this.map;
    const number = this.parameters.get("block");
    this.map.selected = number === null ? -1 : blocks.findIndex((block) => block[NUMBER] === Number(number));
    this.map.draw();
    const range = this.map.range();
    setText(this.scale, range ? `Pale is ${this.#words(by, range.least)}, full is ${this.#words(by, range.most)}; a framed block is open, ` +
      "a red one damaged." : "");
    const bytes = blocks.reduce((sum, block) => sum + block[LENGTH], 0);
    setText(this.told, `${figures.counted(this.answer.total, "block", "blocks")}, ${figures.bytes(bytes)}` +
      (blocks.length < this.answer.total ? `; the map has the ${figures.count(blocks.length)} that could be read.` : "."));
    this.problem.hidden = !this.answer.damage;
    replace(this.problem, this.answer.damage ? ["Damaged: ", given(this.answer.damage, 600)] : null);
    this.#showBlock();
  }

  #showBlock() {
    const block = this.map.blocks[this.map.selected];
    if (!block) {
      replace(this.block, element("h2", {id: "block-title"}, "A block"), element("p", {class: "quiet"}, "Choose one on the map."));
      return;
    }
    const isMoment = board.tableOf(this.id)?.timeUnit !== null;
    const fact = (name, value) => element("div", {}, element("dt", {}, name), element("dd", {}, value));
    const filters = this.answer.filterNames.map((name, i) => element("div", {}, element("dt", {}, "Filter ", given(name, 40)),
      element("dd", {}, block[CLOSED] ? `${figures.percent(block[BITS][i] ?? 0, this.answer.filterBits)} full` : "-")));
    const damages = this.findings.filter((one) => this.map.holding(one.block ?? one.offset) === this.map.selected);
    replace(this.block, element("h2", {id: "block-title"}, `Block ${figures.count(block[NUMBER])}`), element("dl", {class: "values"},
      fact("Offset in the file", figures.count(block[OFFSET])), fact("Length", `${figures.bytes(block[LENGTH])} (${figures.count(block[LENGTH])})`),
      fact("Closed", block[CLOSED] ? "yes" : "no, still written"), fact("Messages", figures.count(block[MESSAGES])),
      fact(`First time (${zoneName()})`, moment(block[FIRST_TIME], isMoment)), fact("Last time", moment(block[LAST_TIME], isMoment)),
      fact("Uniform ids", `${figures.count(block[FIRST_UID])} to ${figures.count(block[LAST_UID])}`), filters),
      damages.map((one) => element("p", {class: one.damage ? "error" : "note"}, given(one.text, 400))),
      element("a", {href: this.#linkOf(block)}, "Messages of this block"));
  }

  // A list that begins with the messages of the block: their uniform ids are in its range.
  #linkOf(block) {
    return linkTo("messages", {table: this.id, uid: `${block[FIRST_UID]}..${block[LAST_UID]}`});
  }

  #select(place) {
    if (place < 0 || place >= this.map.blocks.length) {
      return;
    }
    this.map.selected = place;
    this.parameters = changed(this.parameters, {block: this.map.blocks[place][NUMBER]});
    keep("blocks", this.parameters);
    this.map.draw();
    this.#showBlock();
  }

  #listen() {
    this.stage.addEventListener("click", (event) => {
      const frame = this.canvas.getBoundingClientRect();
      this.#select(this.map.at(event.clientX - frame.left, event.clientY - frame.top));
    });
    this.stage.addEventListener("keydown", (event) => {
      const {selected, columns} = this.map;
      const steps = {ArrowRight: selected + 1, ArrowLeft: selected - 1, ArrowDown: selected < 0 ? 0 : selected + columns, ArrowUp: selected - columns,
                     Home: 0, End: this.map.blocks.length - 1};
      if (event.key in steps) {
        this.#select(steps[event.key]);
      } else if (event.key === "Enter" && this.map.blocks[selected]) {
        location.hash = this.#linkOf(this.map.blocks[selected]);
      } else {
        return;
      }
      event.preventDefault();
    });
  }

  #startVerifying() {
    if (!this.id) {
      return;
    }
    this.#leaveVerifying();
    this.progress.hidden = false;
    this.verify.disabled = true;
    setText(this.verdict, "Verifying.");
    this.verifying = new Verifying(this.id, {
      progress: (done, total) => {
        this.progress.value = total > 0 ? done / total : 0;
        setText(this.verdict, `Verifying: ${figures.percent(done, total)}.`);
      },
      finding: (finding) => this.#take(finding),
      ended: (result) => this.#endVerifying(result.sound
        ? `Sound: ${figures.counted(result.blocks, "block", "blocks")}, ${figures.counted(result.messages, "whole message", "whole messages")}, ` +
          `${figures.bytes(result.bytes)}, ${figures.counted(result.notes, "note", "notes")}.`
        : `Damaged: ${figures.counted(result.damages, "damage", "damages")}, ${figures.counted(result.notes, "note", "notes")}; ` +
          `${figures.counted(result.messages, "whole message", "whole messages")} in ${figures.counted(result.blocks, "block", "blocks")}.`,
        result.sound ? "verdict good" : "verdict bad"),
      failed: (text) => this.#endVerifying(text, "verdict bad"),
    });
  }

  #take(finding) {
    this.findings.push(finding);
    const place = this.map.holding(finding.block ?? finding.offset);
    if (place >= 0) {
      (finding.damage ? this.map.damaged : this.map.noted).add(place);
    }
    this.list.append(element("li", {}, element("span", {class: `badge ${finding.damage ? "bad" : "warn"}`}, finding.damage ? "damage" : "note"),
      " at ", element("button", {type: "button", class: "plain", onclick: () => this.#select(place)}, figures.count(finding.offset)), ", ",
      given(finding.kind, 40), ": ", given(finding.text, 400)));
    this.map.draw();
    this.#showBlock();
  }

  #endVerifying(text, kind) {
    this.verifying = null;
    this.verify.disabled = false;
    this.progress.hidden = true;
    this.verdict.className = kind;
    setText(this.verdict, text);
  }

  #leaveVerifying() {
    this.verifying?.stop();
    this.findings = [];
    this.map.damaged.clear();
    this.map.noted.clear();
    replace(this.list);
    this.#endVerifying("", "");
  }

  #grown(ids) {
    if (!this.id || !this.answer) {
      this.show(this.parameters);
    } else if (ids.has(this.id) && (board.tableOf(this.id)?.closedBlocks ?? 0) + 1 > this.map.blocks.length && !this.answer.damage && !this.renewing) {
      this.renewing = setTimeout(() => {
        this.renewing = 0;
        this.#load();
      }, 2000);
    }
  }

  redraw() {
    this.#draw();
  }

  leave() {
    this.verifying?.stop();
    clearTimeout(this.renewing);
    this.asker.stop();
    this.end();
    this.watching.disconnect();
  }
}

export const blocksView = {name: "blocks", title: "Blocks", make: (host, parameters) => new Blocks(host, parameters)};
