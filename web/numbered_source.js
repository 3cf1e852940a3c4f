// The messages of one table by their numbers, of which pieces are loaded as they are looked at. A source of a list has
// count(), row(i): a message, null while it is not there yet, or {missing} where none can be read; want(first, last);
// grow(follows) when its tables have grown; stop(); and calls changed({front, failed}) when rows have come: `front` of them in
// front of the others.
import * as board from "./board.js";
import {ask} from "./server.js";

const PIECE = 200;   // messages
const MOST = 60;     // pieces that are kept
const AT_A_TIME = 2;
const AT_THE_END = 60;  // rows that a list needs which follows
const AGAIN = 2000;  // milliseconds before a question that failed is asked again

export class NumberedSource {
  #pieces = new Map();  // number of the piece: {messages, after, isOver}
  #running = new Map();
  #wanted = [];
  #restsUntil = 0;
  #ending = new AbortController();

  constructor(table, changed) {
    this.table = table;
    this.changed = changed;
    this.damage = null;
    this.total = board.tableOf(table)?.messages ?? 0;  // that the list has
    this.goal = this.total;                            // that the table has
  }

  count() {
    return this.total;
  }

  row(i) {
    const piece = this.#pieces.get(Math.floor(i / PIECE));
    if (!piece) {
      return null;
    }
    return piece.messages[i % PIECE] ?? (piece.isOver ? {missing: true} : null);
  }

  // All that there is at both ends is known from the beginning.
  get atStart() { return true; }
  get atEnd() { return true; }
  get isLoading() { return this.#running.size > 0; }

  want(first, last) {
    this.#wanted = [];
    this.#wantPieces(first, Math.min(last, this.total - 1));
    if (this.goal > this.total) {
      this.#wantPieces(this.goal - AT_THE_END, this.goal - 1);
    }
    this.#next();
  }

  #wantPieces(first, last) {
    const end = Math.floor(Math.max(last, 0) / PIECE);
    for (let piece = Math.max(Math.floor(first / PIECE), 0); piece <= end; ++piece) {
      if (this.#isDue(piece) && !this.#wanted.includes(piece)) {
        this.#wanted.push(piece);
      }
    }
  }

  // A piece that is not there, or has fewer messages than the table now has for it.
  #isDue(number) {
    const piece = this.#pieces.get(number);
    const length = Math.min(this.goal - number * PIECE, PIECE);
    return length > 0 && Date.now() >= this.#restsUntil && !this.#running.has(number) &&
        (!piece || (piece.messages.length < length && !piece.isOver));
  }

  #next() {
    while (this.#running.size < AT_A_TIME && this.#wanted.length > 0) {
      const number = this.#wanted.shift();
      if (this.#isDue(number)) {
        this.#running.set(number, this.#load(number));
      }
    }
  }

  async #load(number) {
    const piece = this.#pieces.get(number);
    const have = piece?.messages.length ?? 0;
    const place = piece?.after ? {after: piece.after} : {at: number * PIECE};
    let failed = null;
    try {
      const answer = await ask("/api/messages", {table: this.table, ...place, limit: PIECE - have}, this.#ending.signal);
      const due = Math.min(this.goal - number * PIECE, PIECE);
      const messages = [...(piece?.messages ?? []), ...answer.messages];
      this.damage = answer.damage ?? this.damage;
      // Without any new message there is none to come: the rest cannot be read.
      this.#pieces.delete(number);
      this.#pieces.set(number, {messages, after: answer.after, isOver: messages.length < due && !answer.stopped && !answer.more &&
                                                                       answer.messages.length === 0});
      this.#forget(number);
      this.total = Math.max(this.total, Math.min(this.goal, number * PIECE + messages.length));
    } catch (error) {
      if (error.name === "AbortError") {
        return;
      }
      failed = error;
      this.#takeFailure(number, error);
    }
    this.#running.delete(number);
    this.changed({front: 0, failed});
    this.#next();
  }

  // What cannot be read stays so until the table grows; other failures are tried again in a while.
  #takeFailure(number, error) {
    if (error.status === 400 || error.status === 404) {
      this.damage = error.message;
      this.#pieces.set(number, {messages: this.#pieces.get(number)?.messages ?? [], after: this.#pieces.get(number)?.after, isOver: true});
    } else {
      this.#restsUntil = Date.now() + AGAIN;
      setTimeout(() => this.changed({front: 0, failed: null}), AGAIN + 50);
    }
  }

  #forget(kept) {
    for (const number of this.#pieces.keys()) {
      if (this.#pieces.size <= MOST) {
        break;
      }
      if (number !== kept) {
        this.#pieces.delete(number);
      }
    }
  }

  // A list that follows has the new rows when they are loaded, so that none of them is empty meanwhile; another one at once.
  grow(follows) {
    const goal = board.tableOf(this.table)?.messages ?? 0;
    if (goal === this.goal && (follows || this.total === goal)) {
      return;
    }
    if (goal < this.goal) {
      this.#pieces.clear();  // another table of this name
      this.total = goal;
    }
    for (const piece of this.#pieces.values()) {
      piece.isOver = false;  // to be tried again
    }
    this.goal = goal;
    if (!follows) {
      this.total = goal;
    }
    this.changed({front: 0, failed: null});
  }

  stop() {
    this.#ending.abort();
  }
}
