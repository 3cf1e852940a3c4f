// The chart of a timeline on a canvas: stacked bars of each series, an axis of times, a lane of marks below, and a stretch
// that is selected. It only draws, and tells what stands where; timeline_view.js moves it.
import {colour, sizedContext} from "./elements.js";
import * as figures from "./figures.js";
import {axisLabel, zoneOffset} from "./times.js";

const LEFT = 66;
const RIGHT = 10;
const TOP = 10;
const LANE = 20;   // height of the lane of marks
const AXIS = 22;
const STEPS = [1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 15000, 30000, 60000, 120000, 300000, 600000, 900000,
               1800000, 3600000, 7200000, 10800000, 21600000, 43200000, 86400000, 172800000, 604800000, 2592000000, 31536000000];

export const MARK_COLOURS = {gap: "bad", reset: "series-5", resend: "warn", silence: "series-other", burst: "series-2"};

export function seriesColour(i, name) {
  return name === "other" ? "series-other" : `series-${i % 8 + 1}`;
}

// The end of an axis for values up to `most`: of few digits, and parted in four.
function roundScale(most) {
  const digits = 10 ** Math.floor(Math.log10(Math.max(most, 1)));
  const end = [1, 1.2, 1.6, 2, 2.4, 3.2, 4, 6, 8, 10].map((part) => part * digits).find((one) => one >= most) ?? most;
  return Math.max(end, 1);
}

export class TimelineChart {
  constructor(canvas) {
    this.canvas = canvas;
    this.data = null;
    this.from = 0;
    this.until = 1;
    this.selection = null;  // {from, until} of times
    this.hover = null;      // a time
    this.isMoment = true;
  }

  get width() { return this.canvas.parentElement.clientWidth; }
  get height() { return this.width < 600 ? 260 : 340; }
  get plotWidth() { return Math.max(this.width - LEFT - RIGHT, 10); }

  timeAt(x) {
    return this.from + (Math.min(Math.max(x - LEFT, 0), this.plotWidth) / this.plotWidth) * (this.until - this.from);
  }

  xOf(time) {
    return LEFT + (time - this.from) / (this.until - this.from) * this.plotWidth;
  }

  draw() {
    const {width, height} = this;
    const context = sizedContext(this.canvas, width, height);
    this.bottom = height - AXIS - LANE;
    this.colours = {ink: colour("ink"), muted: colour("muted"), line: colour("line"), accent: colour("accent")};
    context.font = `12px ${getComputedStyle(document.body).fontFamily}`;
    this.#drawAxis(context);
    if (this.data) {
      this.#drawBars(context);
      this.#drawMarks(context);
    }
    this.#drawSelection(context);
  }

  #most() {
    let most = 0;
    const length = this.data?.series[0]?.counts.length ?? 0;
    for (let i = 0; i < length; ++i) {
      most = Math.max(most, this.data.series.reduce((sum, one) => sum + one.counts[i], 0));
    }
    return most;
  }

  #drawAxis(context) {
    const {colours, bottom} = this;
    this.scale = roundScale(this.#most());
    context.strokeStyle = colours.line;
    context.fillStyle = colours.muted;
    context.textAlign = "right";
    for (let i = 0; i <= 4; ++i) {
      const y = Math.round(bottom - i / 4 * (bottom - TOP)) + 0.5;
      context.beginPath();
      context.moveTo(LEFT, y);
      context.lineTo(LEFT + this.plotWidth, y);
      context.stroke();
      if (this.scale >= 4 || i % 4 === 0) {
        context.fillText(figures.count(this.scale * i / 4), LEFT - 6, y + 4);
      }
    }
    this.#drawTimes(context);
  }

  #drawTimes(context) {
    const span = this.until - this.from;
    const most = Math.max(Math.floor(this.plotWidth / (this.isMoment ? 92 : 150)), 2);
    const step = STEPS.find((one) => span / one <= most) ?? span / most;
    const offset = this.isMoment ? zoneOffset(this.from) : 0;
    context.textAlign = "center";
    for (let time = Math.ceil((this.from + offset) / step) * step - offset; time <= this.until; time += step) {
      const x = this.xOf(time);
      context.fillStyle = this.colours.line;
      context.fillRect(Math.round(x), this.bottom, 1, LANE + 4);
      context.fillStyle = this.colours.muted;
      const text = axisLabel(time, step, this.isMoment);
      const half = context.measureText(text).width / 2;
      context.fillText(text, Math.min(Math.max(x, half), this.width - half), this.height - 6);
    }
  }

  #drawBars(context) {
    const {series, from, step} = this.data;
    const length = series[0]?.counts.length ?? 0;
    const base = new Array(length).fill(0);
    context.save();
    context.beginPath();
    context.rect(LEFT, 0, this.plotWidth, this.height);
    context.clip();
    series.forEach((one, place) => {
      context.fillStyle = colour(seriesColour(place, one.name));
      one.counts.forEach((value, i) => {
        if (value > 0) {
          const left = this.xOf(from + i * step);
          const right = this.xOf(from + (i + 1) * step);
          const gap = right - left > 3 ? 1 : 0;
          const height = value / this.scale * (this.bottom - TOP);
          const y = this.bottom - base[i] - height;
          context.fillRect(left, y, Math.max(right - left - gap, 1), Math.max(height, base[i] === 0 ? 1 : 0));
          base[i] += height;
        }
      });
    });
    context.restore();
  }

  #drawMarks(context) {
    this.marksAt = [];
    for (const mark of this.data.marks) {
      const left = Math.max(this.xOf(mark.t), LEFT);
      const right = Math.min(this.xOf(mark.until), LEFT + this.plotWidth);
      if (right < LEFT || left > LEFT + this.plotWidth) {
        continue;
      }
      const y = this.bottom + 4;
      context.fillStyle = colour(MARK_COLOURS[mark.kind] ?? "muted");
      if (mark.kind === "silence") {
        context.fillRect(left, y + 4, Math.max(right - left, 2), 4);
      } else if (mark.kind === "gap" || mark.kind === "reset") {
        context.beginPath();
        context.moveTo(left, y);
        context.lineTo(left + 5, y + 11);
        context.lineTo(left - 5, y + 11);
        context.fill();
      } else {
        context.fillRect(left - 1, y, Math.max(right - left, 3), 11);
      }
      this.marksAt.push({left: left - 6, right: Math.max(right, left) + 6, mark});
    }
  }

  // The mark of the lane at a point of the canvas, or null.
  markAt(x, y) {
    if (!this.marksAt || y < this.bottom || y > this.bottom + LANE) {
      return null;
    }
    const found = this.marksAt.filter((one) => x >= one.left && x <= one.right);
    return found.sort((a, b) => (a.right - a.left) - (b.right - b.left))[0]?.mark ?? null;
  }

  #drawSelection(context) {
    const {selection, colours} = this;
    if (selection) {
      const left = Math.max(this.xOf(selection.from), LEFT);
      const right = Math.min(this.xOf(selection.until), LEFT + this.plotWidth);
      context.globalAlpha = 0.18;
      context.fillStyle = colours.accent;
      context.fillRect(left, TOP, Math.max(right - left, 1), this.bottom - TOP + LANE);
      context.globalAlpha = 1;
      context.strokeStyle = colours.accent;
      context.strokeRect(left + 0.5, TOP + 0.5, Math.max(right - left, 1), this.bottom - TOP + LANE - 1);
    }
    if (this.hover !== null) {
      context.fillStyle = colours.ink;
      context.fillRect(Math.round(this.xOf(this.hover)), TOP, 1, this.bottom - TOP);
    }
  }

  // The counts at a time, as a text: "19:31 to 19:32: 12 messages (D 3, 8 9)"; null where there is no bucket.
  bucketAt(time) {
    if (!this.data || this.data.series.length === 0) {
      return null;
    }
    const i = Math.floor((time - this.data.from) / this.data.step);
    if (i < 0 || i >= this.data.series[0].counts.length) {
      return null;
    }
    return {from: this.data.from + i * this.data.step, until: this.data.from + (i + 1) * this.data.step,
            total: this.data.series.reduce((sum, one) => sum + one.counts[i], 0),
            parts: this.data.series.map((one) => [one.name, one.counts[i]]).filter(([, value]) => value > 0)};
  }
}
