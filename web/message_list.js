// A list that scrolls through however many messages of a source (numbered_source.js): only the rows that are seen exist.
// Browsers do not scroll through more than some ten million pixels: a longer list has a shorter bar, on which small steps
// move by rows and large ones in proportion.
import {element, replace} from "./elements.js";
import {messageRow} from "./message_row.js";

export const ROW = 28;  // pixels, as in style.css
const MOST_PIXELS = 8000000;
const BEYOND = 6;  // rows that exist above and below

export class MessageList {
  #rows = new Map();  // by number: {element, message}
  #top = 0;           // number of the uppermost row, with its fraction
  #told = 0;          // the scroll position that was set or seen last
  #settling = 0;

  // Calls open(message, number) for a row that is chosen, and moved() when what is seen has moved by the viewer's hand.
  constructor(open, moved) {
    this.open = open;
    this.moved = moved;
    this.source = null;
    this.active = -1;
    this.opened = null;  // the key of the message that is open
    this.showsTable = false;
    this.spacer = element("div", {class: "spacer", role: "presentation"});
    this.element = element("div", {class: "list", role: "listbox", tabindex: "0", "aria-label": "Messages"}, this.spacer);
    this.element.addEventListener("scroll", () => this.#scrolled());
    this.element.addEventListener("keydown", (event) => this.#key(event));
    this.element.addEventListener("click", (event) => this.#click(event));
    this.watching = new ResizeObserver(() => this.#resized());
    this.watching.observe(this.element);
  }

  show(source) {
    this.source = source;
    this.active = -1;
    this.#top = 0;
    this.clear();
    this.#place();
    this.render();
  }

  // Makes every row anew: another zone.
  clear() {
    this.#rows.clear();
    this.spacer.replaceChildren();
  }

  get visible() { return Math.max(this.element.clientHeight / ROW, 1); }
  get first() { return Math.max(Math.floor(this.#top), 0); }
  get isAtEnd() { return this.#top + this.visible >= this.#count - 0.8; }
  get #count() { return this.source?.count() ?? 0; }
  get #height() { return Math.min(this.#count * ROW, MOST_PIXELS); }
  get #isScaled() { return this.#count * ROW > MOST_PIXELS; }
  get #mostTop() { return Math.max(this.#count - this.element.clientHeight / ROW, 0); }

  toEnd() {
    this.#top = this.#mostTop;
    this.#place();
    this.render();
  }

  toRow(number) {
    this.#top = Math.min(Math.max(number, 0), this.#mostTop);
    this.#place();
    this.render();
  }

  // Rows have come, `front` of them in front of the others (or have gone, when it is negative).
  changed(front) {
    this.#scrolled();  // what the viewer has scrolled and no event has told yet
    if (front !== 0) {
      this.#top = Math.max(this.#top + front, 0);
      this.active = this.active < 0 ? -1 : Math.max(this.active + front, -1);
      this.clear();
    }
    this.#top = Math.min(this.#top, this.#mostTop);
    this.#place();
    this.render();
  }

  #resized() {
    const wasAtEnd = this.follows?.();
    wasAtEnd ? this.toEnd() : this.changed(0);
  }

  // Sets the bar to where the list is.
  #place() {
    this.spacer.style.height = `${this.#height}px`;
    const most = Math.max(this.#height - this.element.clientHeight, 0);
    const position = !this.#isScaled ? this.#top * ROW : this.#mostTop > 0 ? this.#top / this.#mostTop * most : 0;
    this.element.scrollTop = position;
    this.#told = this.element.scrollTop;
  }

  #scrolled() {
    const position = this.element.scrollTop;
    const step = position - this.#told;
    if (Math.abs(step) < 1) {
      return;
    }
    this.#told = position;
    if (!this.#isScaled) {
      this.#top = position / ROW;
    } else if (Math.abs(step) < 2 * this.element.clientHeight) {
      this.#top = Math.min(Math.max(this.#top + step / ROW, 0), this.#mostTop);
      clearTimeout(this.#settling);
      this.#settling = setTimeout(() => {
        this.#scrolled();
        this.#place();
        this.render();
      }, 150);
    } else {
      this.#top = position / Math.max(this.#height - this.element.clientHeight, 1) * this.#mostTop;
    }
    this.render();
    this.moved();
  }

  render() {
    if (!this.source) {
      return;
    }
    const first = Math.max(Math.floor(this.#top) - BEYOND, 0);
    const last = Math.min(Math.ceil(this.#top + this.visible) + BEYOND, this.#count) - 1;
    for (const [number, row] of this.#rows) {
      if (number < first || number > last) {
        row.element.remove();
        this.#rows.delete(number);
      }
    }
    this.element.removeAttribute("aria-activedescendant");  // set again where that row is seen
    const shift = this.#isScaled ? this.#told - this.#top * ROW : 0;
    for (let number = first; number <= last; ++number) {
      this.#renderRow(number, shift);
    }
    this.source.want(Math.floor(this.#top), Math.ceil(this.#top + this.visible));
  }

  #renderRow(number, shift) {
    const message = this.source.row(number);
    let row = this.#rows.get(number);
    if (!row || row.message !== message) {
      const made = messageRow(message, number, this.showsTable);
      made.id = `message-${number}`;
      made.dataset.number = number;
      made.setAttribute("aria-posinset", number + 1);
      made.setAttribute("aria-setsize", this.source.atStart && this.source.atEnd ? this.#count : -1);
      row ? row.element.replaceWith(made) : this.spacer.append(made);
      row = {element: made, message};
      this.#rows.set(number, row);
    }
    row.element.style.transform = `translateY(${number * ROW + shift}px)`;
    const isActive = number === this.active;
    const isOpened = this.opened !== null && message && !message.missing && keyOf(message) === this.opened;
    row.element.setAttribute("aria-selected", isOpened ? "true" : "false");
    row.element.classList.toggle("active", isActive);
    if (isActive) {
      this.element.setAttribute("aria-activedescendant", row.element.id);
    }
  }

  // Makes a row the one that keys move from, and shows it.
  activate(number, opens) {
    if (this.#count === 0) {
      return;
    }
    this.active = Math.min(Math.max(number, 0), this.#count - 1);
    if (this.active < this.#top) {
      this.#top = this.active;
    } else if (this.active + 1 > this.#top + this.element.clientHeight / ROW) {
      this.#top = Math.min(this.active + 1 - this.element.clientHeight / ROW, this.#mostTop);
    }
    this.#place();
    this.render();
    this.moved();
    if (opens) {
      this.openActive();
    }
  }

  openActive() {
    const message = this.active >= 0 ? this.source.row(this.active) : null;
    if (message && !message.missing) {
      this.open(message, this.active);
    }
  }

  setOpened(key) {
    this.opened = key;
    this.render();
  }

  #key(event) {
    if (event.ctrlKey || event.altKey || event.metaKey) {
      return;
    }
    const page = Math.max(Math.floor(this.visible) - 1, 1);
    const from = this.active < 0 ? (this.isAtEnd ? this.#count : this.first - 1) : this.active;
    const steps = {ArrowDown: from + 1, ArrowUp: from - 1, PageDown: from + page, PageUp: from - page, Home: 0,
                   End: this.#count - 1};
    if (event.key in steps) {
      this.activate(steps[event.key], this.opened !== null);
    } else if (event.key === "Enter") {
      this.openActive();
    } else {
      return;
    }
    event.preventDefault();
  }

  #click(event) {
    const row = event.target.closest("[data-number]");
    if (row && !getSelection().toString()) {
      this.activate(Number(row.dataset.number), true);
    }
  }

  leave() {
    this.watching.disconnect();
    clearTimeout(this.#settling);
    replace(this.element);
  }
}

// What a message is known by in an address: its table and its place there.
export function keyOf(message) {
  return `${message.table}:${message.at}`;
}
