// A map of blocks on a canvas: a square for each, in the order of the file, coloured by one of its numbers. What a block holds
// stands in `blocks` as /api/blocks gives it. Damage that was found stands on it in red.
import {colour, sizedContext} from "./elements.js";

const MOST_ROWS_HEIGHT = 6000;  // pixels of a canvas

export class BlockMap {
  constructor(canvas) {
    this.canvas = canvas;
    this.blocks = [];
    this.valueOf = () => null;
    this.selected = -1;
    this.damaged = new Set();  // numbers of blocks
    this.noted = new Set();
    this.columns = 1;
    this.cell = 16;
  }

  get width() { return this.canvas.parentElement.clientWidth; }

  // Squares as large as the number of blocks allows.
  #measure() {
    const {width} = this;
    const count = Math.max(this.blocks.length, 1);
    this.cell = [28, 20, 14, 10, 7, 5, 4].find((cell) => Math.ceil(count / Math.max(Math.floor(width / cell), 1)) * cell <= 560) ?? 4;
    this.columns = Math.max(Math.floor(width / this.cell), 1);
    this.height = Math.min(Math.ceil(count / this.columns) * this.cell + 2, MOST_ROWS_HEIGHT);
  }

  // The range of the values that colours stand for.
  range() {
    let least = Infinity;
    let most = -Infinity;
    for (const block of this.blocks) {
      const value = this.valueOf(block);
      if (value !== null && Number.isFinite(value)) {
        least = Math.min(least, value);
        most = Math.max(most, value);
      }
    }
    return least <= most ? {least, most} : null;
  }

  draw() {
    if (this.width === 0) {
      return;
    }
    this.#measure();
    const context = sizedContext(this.canvas, this.width, this.height);
    const range = this.range();
    const colours = {open: colour("raised"), value: colour("series-1"), bad: colour("bad"), warn: colour("warn"), ink: colour("ink"),
                     line: colour("strong-line")};
    this.blocks.forEach((block, i) => this.#drawBlock(context, colours, range, block, i));
  }

  #drawBlock(context, colours, range, block, i) {
    const [x, y] = [i % this.columns * this.cell, Math.floor(i / this.columns) * this.cell];
    const size = this.cell - (this.cell > 6 ? 2 : 1);
    const value = this.valueOf(block);
    context.fillStyle = colours.open;
    context.fillRect(x + 1, y + 1, size, size);
    if (value !== null && range) {
      const part = range.most > range.least ? (value - range.least) / (range.most - range.least) : 0.6;
      context.globalAlpha = 0.15 + 0.85 * part;
      context.fillStyle = colours.value;
      context.fillRect(x + 1, y + 1, size, size);
      context.globalAlpha = 1;
    }
    if (!block[3]) {
      context.strokeStyle = colours.line;
      context.strokeRect(x + 1.5, y + 1.5, size - 1, size - 1);
    }
    if (this.damaged.has(i) || this.noted.has(i)) {
      context.fillStyle = this.damaged.has(i) ? colours.bad : colours.warn;
      context.fillRect(x + 1, y + 1, size, size);
    }
    if (i === this.selected) {
      context.strokeStyle = colours.ink;
      context.lineWidth = 2;
      context.strokeRect(x + 1, y + 1, size, size);
      context.lineWidth = 1;
    }
  }

  // The place in `blocks` at a point of the canvas, or -1.
  at(x, y) {
    const column = Math.floor(x / this.cell);
    const place = Math.floor(y / this.cell) * this.columns + column;
    return column >= 0 && column < this.columns && place >= 0 && place < this.blocks.length ? place : -1;
  }

  // The place of the block that holds an offset of the file, or -1.
  holding(offset) {
    let [low, high] = [0, this.blocks.length - 1];
    let found = -1;
    while (low <= high) {
      const middle = (low + high) >> 1;
      if (this.blocks[middle][1] <= offset) {
        found = middle;
        low = middle + 1;
      } else {
        high = middle - 1;
      }
    }
    return found;
  }
}
