// The messages of several tables, or those that filters choose, or those behind a place: loaded page by page, on at both
// ends. How many there are is not known. A source as numbered_source.js tells it.
import {ask} from "./server.js";

const PAGE = 200;
const MOST_PAGES = 100;  // behind which those at the other end are forgotten
const AGAIN = 2000;      // milliseconds before a question that failed is asked again

export class CursorSource {
  #pages = [];  // {messages, before, after}
  #rows = [];
  #running = null;
  #ending = new AbortController();
  #grown = false;
  #restsUntil = 0;

  // Begins at the newest messages, or behind a cursor.
  constructor(parameters, cursor, changed) {
    this.parameters = parameters;
    this.changed = changed;
    this.damage = null;
    this.command = null;
    this.read = 0;       // messages that the server has read for this
    this.skipped = 0;    // blocks that it did not need to read
    this.atStart = false;
    this.atEnd = !cursor;
    this.cursor = cursor;
    this.#running = this.#load(cursor ? {after: cursor} : {before: "end"}, cursor ? "after" : "before");
  }

  get isLoading() { return this.#running !== null; }

  count() {
    return this.#rows.length;
  }

  row(i) {
    return this.#rows[i] ?? null;
  }

  // The cursor of the page that has a row, by which the list can be begun there again, and the row's number in that page.
  placeOf(i) {
    let first = 0;
    for (const page of this.#pages) {
      if (i < first + page.messages.length) {
        return [page.before, i - first];
      }
      first += page.messages.length;
    }
    return [null, null];
  }

  want(first, last) {
    if (this.#running || this.#pages.length === 0 || Date.now() < this.#restsUntil) {
      return;
    }
    if (first < PAGE / 2 && !this.atStart) {
      this.#running = this.#load({before: this.#pages[0].before}, "before");
    } else if (last >= this.#rows.length - PAGE / 2 && (!this.atEnd || this.#grown)) {
      this.#grown = false;
      this.#running = this.#load({after: this.#pages.at(-1).after}, "after");
    }
  }

  async #load(place, direction) {
    const have = this.#rows.length;
    let front = 0;
    let failed = null;
    try {
      const answer = await ask("/api/messages", new URLSearchParams([...this.parameters, ...Object.entries(place), ["limit", PAGE]]),
                               this.#ending.signal);
      this.#take(answer, direction);
      front = direction === "before" && have > 0 ? answer.messages.length : 0;
      front -= this.#forget(direction);
    } catch (error) {
      if (error.name === "AbortError") {
        return;
      }
      failed = error;
      this.#restsUntil = Date.now() + AGAIN;
      setTimeout(() => this.changed({front: 0, failed: null}), AGAIN + 50);
    }
    this.#running = null;
    this.changed({front, failed});
  }

  #take(answer, direction) {
    this.damage = answer.damage ?? this.damage;
    this.command = answer.command ?? this.command;
    this.read += answer.read ?? 0;
    this.skipped += answer.blocksSkipped ?? 0;
    const page = {messages: answer.messages, before: answer.before, after: answer.after};
    const isOver = !answer.more && !answer.stopped;
    if (direction === "before") {
      this.#pages.unshift(page);
      this.atStart = isOver;
    } else {
      this.#pages.push(page);
      this.atEnd = isOver;
    }
    if (page.messages.length === 0 && this.#pages.length > 1) {
      this.#joinEmpty(direction);
    }
    this.#rows = this.#pages.flatMap((one) => one.messages);
  }

  // A page without messages only moves the cursor of its neighbour.
  #joinEmpty(direction) {
    if (direction === "before") {
      const page = this.#pages.shift();
      this.#pages[0].before = page.before;
    } else {
      const page = this.#pages.pop();
      this.#pages.at(-1).after = page.after;
    }
  }

  // Returns how many rows have gone in front.
  #forget(direction) {
    if (this.#pages.length <= MOST_PAGES) {
      return 0;
    }
    if (direction === "before") {
      this.#pages.pop();
      this.atEnd = false;
      this.#rows = this.#pages.flatMap((one) => one.messages);
      return 0;
    }
    const gone = this.#pages.shift().messages.length;
    this.atStart = false;
    this.#rows = this.#pages.flatMap((one) => one.messages);
    return gone;
  }

  // The tables have grown: there is more behind the end.
  grow() {
    this.#grown = true;
    this.changed({front: 0, failed: null});
  }

  stop() {
    this.#ending.abort();
  }
}
