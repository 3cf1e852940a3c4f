// Times in the zone that the viewer has chosen, which is kept in this browser: the viewer's own, or UTC. The server's times
// are milliseconds since 1970; of a table without a known unit they are plain numbers and shown as such.

const KEY = "tabulo-zone";
const listeners = new Set();
let zone = localStorage.getItem(KEY) === "utc" ? "utc" : "viewer";

export function zoneChoice() {
  return zone;
}

export function viewersZone() {
  return Intl.DateTimeFormat().resolvedOptions().timeZone || "the viewer's zone";
}

export function zoneName() {
  return zone === "utc" ? "UTC" : viewersZone();
}

export function chooseZone(choice) {
  zone = choice === "utc" ? "utc" : "viewer";
  localStorage.setItem(KEY, zone);
  listeners.forEach((listener) => listener());
}

export function onZone(listener) {
  listeners.add(listener);
}

const two = (number) => String(number).padStart(2, "0");

// Year, month, day, hour, minute, second, millisecond in the chosen zone; null for what is no moment.
function parts(time) {
  const date = new Date(time);
  if (Number.isNaN(date.getTime())) {
    return null;
  }
  return zone === "utc"
      ? [date.getUTCFullYear(), date.getUTCMonth() + 1, date.getUTCDate(), date.getUTCHours(), date.getUTCMinutes(),
         date.getUTCSeconds(), date.getUTCMilliseconds()]
      : [date.getFullYear(), date.getMonth() + 1, date.getDate(), date.getHours(), date.getMinutes(), date.getSeconds(),
         date.getMilliseconds()];
}

export function dayOf(time, isMoment = true) {
  const found = isMoment && time !== null ? parts(time) : null;
  return found ? `${found[0]}-${two(found[1])}-${two(found[2])}` : "";
}

// 19:31:45.673
export function clock(time, isMoment = true) {
  if (time === null || time === undefined) {
    return "-";
  }
  const found = isMoment ? parts(time) : null;
  return found ? `${two(found[3])}:${two(found[4])}:${two(found[5])}.${String(found[6]).padStart(3, "0")}` : String(time);
}

// 2026-11-20 19:31:45.673
export function moment(time, isMoment = true) {
  const day = dayOf(time, isMoment);
  return day ? `${day} ${clock(time)}` : clock(time, isMoment);
}

// What the axis of a chart says, whose marks are `step` apart: no more than is needed.
export function axisLabel(time, step, isMoment = true) {
  if (!isMoment) {
    return String(Math.round(time));
  }
  const found = parts(time);
  if (!found) {
    return "";
  }
  if (step >= 86400000) {
    return `${found[0]}-${two(found[1])}-${two(found[2])}`;
  }
  const minutes = `${two(found[3])}:${two(found[4])}`;
  if (found[3] === 0 && found[4] === 0 && step >= 60000) {
    return `${two(found[1])}-${two(found[2])} ${minutes}`;
  }
  if (step >= 60000) {
    return minutes;
  }
  return step >= 1000 ? `${minutes}:${two(found[5])}` : `${minutes}:${two(found[5])}.${String(found[6]).padStart(3, "0")}`;
}

// A time as a filter of the server takes it, which is UTC; of a table without a unit the number that is stored.
export function filterTime(time, isMoment = true) {
  return isMoment ? new Date(time).toISOString().replace("Z", "") : String(Math.round(time));
}

// Where the day, the hour ... begin in the chosen zone: the milliseconds by which it is ahead of UTC.
export function zoneOffset(time) {
  return zone === "utc" ? 0 : -new Date(time).getTimezoneOffset() * 60000;
}
