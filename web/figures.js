// Numbers as eyes read them.

const WHOLE = new Intl.NumberFormat("en", {maximumFractionDigits: 0});
const SHORT = new Intl.NumberFormat("en", {maximumFractionDigits: 1});

export function count(number) {
  return number === null || number === undefined ? "-" : WHOLE.format(number);
}

export function counted(number, one, several) {
  return `${count(number)} ${number === 1 ? one : several}`;
}

export function bytes(number) {
  if (number === null || number === undefined) {
    return "-";
  }
  let value = number;
  for (const unit of ["B", "KiB", "MiB", "GiB"]) {
    if (value < 1024) {
      return `${unit === "B" ? WHOLE.format(value) : value.toFixed(1)} ${unit}`;
    }
    value /= 1024;
  }
  return `${value.toFixed(1)} TiB`;
}

export function rate(perSecond) {
  if (!perSecond) {
    return "0";
  }
  return perSecond < 0.1 ? "< 0.1" : perSecond < 100 ? SHORT.format(perSecond) : WHOLE.format(perSecond);
}

export function percent(part, whole) {
  return whole > 0 ? `${(100 * part / whole).toFixed(1)} %` : "-";
}

// A length of time in milliseconds, in its two largest units.
export function duration(ms) {
  if (ms === null || ms === undefined || !Number.isFinite(ms)) {
    return "-";
  }
  const sign = ms < 0 ? "-" : "";
  const length = Math.abs(ms);
  if (length < 1000) {
    return `${sign}${length < 10 && length % 1 ? length.toFixed(3) : Math.round(length)} ms`;
  }
  const seconds = length / 1000;
  if (seconds < 60) {
    return `${sign}${seconds.toFixed(seconds < 10 ? 2 : 1)} s`;
  }
  const minutes = Math.floor(seconds / 60);
  if (minutes < 60) {
    return `${sign}${minutes} min ${Math.floor(seconds % 60)} s`;
  }
  const hours = Math.floor(minutes / 60);
  return hours < 48 ? `${sign}${hours} h ${minutes % 60} min` : `${sign}${count(Math.floor(hours / 24))} d ${hours % 24} h`;
}
