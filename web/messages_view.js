// Messages: the list, what chooses it, and one message opened beside it. In the address: tables and filters; m, the message
// that is open; n, the number of the uppermost row of a table without filters; from, the cursor of a list that does not
// begin with the newest, n then counts from there. Without n and from the list follows: it stays at its end while messages
// come.
import {changed, go, keep, linkTo} from "./address.js";
import * as board from "./board.js";
import {CursorSource} from "./cursor_source.js";
import {copyButton, element, given, replace, setText} from "./elements.js";
import * as figures from "./figures.js";
import {filterPairs, Filters, questionOf} from "./filters.js";
import {keyOf, MessageList} from "./message_list.js";
import {MessagePanel} from "./message_panel.js";
import {isMomentOf} from "./message_row.js";
import {NumberedSource} from "./numbered_source.js";
import {dayOf, zoneName} from "./times.js";

const KEEP_AFTER = 300;  // milliseconds of rest before the address tells where the list is

// What an address asks for, and where its list begins, as a text.
function beginningOf(parameters) {
  const from = parameters.get("from");
  return `${questionOf(parameters)} ${from ? `${from} ${parameters.get("n") ?? 0}` : ""}`;
}

class Messages {
  constructor(host, parameters) {
    this.filters = new Filters((query) => go("messages", query));
    this.list = new MessageList((message) => this.#open(message), () => this.#moved());
    this.list.follows = () => this.isFollowing;
    this.panel = new MessagePanel(() => this.#close());
    this.told = element("p", {class: "told quiet"});  // it changes too often to be read aloud
    this.place = element("span", {class: "quiet"});
    this.problem = element("p", {class: "error", role: "alert", hidden: true});
    this.followButton = element("button", {type: "button", class: "small", onclick: () => this.#setFollowing(!this.isFollowing)});
    this.timeline = element("a", {}, "Timeline of these");
    this.command = copyButton("Copy command", () => this.source.command ?? `tabulo cat ${this.#paths()}`);
    replace(host, element("div", {class: "row spread"}, element("h1", {}, "Messages"),
                          element("div", {class: "row"}, this.place, this.timeline, this.command, this.followButton)),
            this.filters.element, this.problem, element("div", {class: "split"}, this.list.element, this.panel.element), this.told);
    this.isFollowing = false;
    this.keys = [
      ["j", "the next message", () => this.list.activate(this.list.active + 1, this.list.opened !== null)],
      ["k", "the message before", () => this.list.activate(this.list.active - 1, this.list.opened !== null)],
      ["Enter", "open the message", () => this.list.openActive()],
      ["Escape", "close the message", () => this.#close()],
      ["f", "follow new messages, or pause", () => this.#setFollowing(!this.isFollowing)],
      ["l", "go to the list", () => this.list.element.focus()],
    ];
    this.question = null;
    this.end = board.onTables((ids) => this.#grown(ids));
    this.show(parameters);
  }

  // The question of an address, as a text: the same one keeps its list.
  show(parameters) {
    this.parameters = parameters;
    this.timeline.href = linkTo("timeline", questionOf(parameters));
    if (this.question !== beginningOf(parameters)) {
      this.question = beginningOf(parameters);
      this.filters.set(questionOf(parameters));
      this.#begin();
    } else if (this.isNumbered && parameters.has("n") && Math.abs(this.list.first - Number(parameters.get("n"))) > 1) {
      this.isFollowing = false;
      this.list.toRow(Number(parameters.get("n")));
    }
    this.#showOpened();
  }

  #begin() {
    this.source?.stop();
    const tables = this.parameters.getAll("table");
    const only = tables.length === 1 ? tables[0] : tables.length === 0 && board.messageTables().length === 1 ? board.messageTables()[0].id : null;
    const cursor = this.parameters.get("from");
    const isNumbered = only !== null && filterPairs(this.parameters).length === 0 && !cursor;
    if (!board.isKnown() && !cursor) {
      this.question = null;  // begun when the tables are told
      setText(this.told, "Waiting for the server.");
      return;
    }
    this.row = cursor ? Number(this.parameters.get("n")) || 0 : 0;  // to be shown when it is there
    this.isNumbered = isNumbered && board.tableOf(only) !== null;
    const changed = (news) => this.#changed(news);
    this.source = this.isNumbered ? new NumberedSource(only, changed) : new CursorSource(questionOf(this.parameters), cursor, changed);
    this.list.showsTable = !(only !== null || tables.length === 1);
    this.isFollowing = !cursor && !this.parameters.has("n");
    this.#tellProblem(null);
    this.list.show(this.source);
    if (this.isNumbered && this.parameters.has("n")) {
      this.list.toRow(Number(this.parameters.get("n")) || 0);
    } else if (this.isFollowing) {
      this.list.toEnd();
    }
    this.#tell();
  }

  #changed({front, failed}) {
    if (failed) {
      this.#tellProblem(failed.message);
    } else if (this.source.count() > 0) {
      this.#tellProblem(null);
    }
    this.list.changed(front);
    if (this.isFollowing) {
      this.list.toEnd();
    } else if (this.row > 0 && this.source.count() > this.row) {
      this.list.toRow(this.row);
      this.row = 0;
    }
    this.#tell();
  }

  // Tables have grown, or are known now.
  #grown(ids) {
    if (this.question === null) {
      this.show(this.parameters);
      return;
    }
    const chosen = this.parameters.getAll("table");
    if (chosen.length === 0 || chosen.some((id) => ids.has(id))) {
      this.source.grow(this.isFollowing);
    }
  }

  #moved() {
    const followed = this.isFollowing;
    this.isFollowing = this.list.isAtEnd && this.source.atEnd;
    if (followed && !this.isFollowing) {
      this.source.grow(false);
    }
    this.#tell();
    clearTimeout(this.keeping);
    this.keeping = setTimeout(() => this.#keepPlace(), KEEP_AFTER);
  }

  #keepPlace() {
    const where = {n: null, from: this.parameters.get("from")};
    if (this.isNumbered) {
      where.n = this.isFollowing ? null : this.list.first;
    } else {
      const [cursor, row] = this.isFollowing ? [null, null] : this.source.placeOf(this.list.first);
      where.from = cursor;
      where.n = row;
    }
    this.parameters = changed(this.parameters, where);
    this.question = beginningOf(this.parameters);
    keep("messages", this.parameters);
  }

  #setFollowing(follows) {
    if (follows && !this.isNumbered && !this.source.atEnd) {
      go("messages", changed(this.parameters, {from: null, n: null}));
      return;
    }
    this.isFollowing = follows;
    if (follows) {
      this.list.toEnd();
    } else {
      this.source?.grow(false);
    }
    this.#tell();
    this.#keepPlace();
  }

  #open(message) {
    go("messages", changed(this.parameters, {m: keyOf(message)}));
  }

  #close() {
    if (this.parameters.has("m")) {
      go("messages", changed(this.parameters, {m: null}));
      this.list.element.focus();
    }
  }

  #showOpened() {
    const key = this.parameters.get("m");
    const colon = key ? key.lastIndexOf(":") : -1;
    this.list.setOpened(key);
    if (!key) {
      this.panel.close();
    } else if (!this.panel.message || keyOf(this.panel.message) !== key) {
      this.panel.open(key.slice(0, colon), key.slice(colon + 1));
    }
  }

  #paths() {
    return this.parameters.getAll("table").map((id) => board.tableOf(id)?.path ?? id).join(" ");
  }

  #tellProblem(text) {
    this.problem.hidden = !text;
    replace(this.problem, text ? given(text, 600) : null);
  }

  #tell() {
    const source = this.source;
    if (!source) {
      return;
    }
    this.followButton.setAttribute("aria-pressed", String(this.isFollowing));
    setText(this.followButton, this.isFollowing ? "Following" : "Follow");
    this.followButton.title = this.isFollowing ? "Pause (f)" : "Go to the newest message, and stay there (f)";
    const total = source.count();
    const first = source.row(this.list.first);
    const day = first && !first.missing ? dayOf(first.t, isMomentOf(first)) : "";
    setText(this.place, this.isNumbered ? `${figures.count(this.list.first + (total ? 1 : 0))} of ${figures.count(total)}${day && `, ${day}`}`
                                        : day);
    const command = source.skipped ? `, ${figures.counted(source.skipped, "block", "blocks")} skipped` : "";
    const found = this.isNumbered ? figures.counted(total, "message", "messages")
      : `${figures.counted(total, "message", "messages")} loaded${source.atStart && source.atEnd ? ", which are all" : ""}; ` +
        `${figures.count(source.read)} read${command}`;
    const damage = source.damage ? ` Not everything could be read: ${source.damage}` : "";
    setText(this.told, `${source.isLoading && total === 0 ? "Looking for messages." : total === 0 ? "No message is there." : `${found}.`} ` +
                       `Received at the left, sent at the right; times are ${zoneName()}.${damage}`);
  }

  redraw() {
    this.list.clear();
    this.list.render();
    this.panel.draw();
    this.#tell();
  }

  leave() {
    clearTimeout(this.keeping);
    this.end();
    this.source?.stop();
    this.filters.leave();
    this.list.leave();
    this.panel.close();
  }
}

export const messagesView = {name: "messages", title: "Messages", make: (host, parameters) => new Messages(host, parameters)};
