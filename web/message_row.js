// A row of the list: a message in one line, what was received at the left side and what was sent at the right one.
import {element, given} from "./elements.js";
import {clock, dayOf} from "./times.js";

const LONGEST_VALUE = 60;

// Whether a message's time is one of the calendar: no unit of times is known for others.
export function isMomentOf(message) {
  return /^-?\d+-\d\d-/.test(message.time ?? "");
}

export function directionOf(message) {
  return message.sent === true ? "sent" : message.sent === false ? "received" : "neither";
}

// The type as words: "NewOrderSingle", or the type itself when nobody has named it.
export function typeWords(message) {
  return message.typeName || `type ${message.type || "-"}`;
}

function flags(message) {
  const made = [];
  if (message.possDup) {
    made.push(element("span", {class: "badge warn", title: "A possible duplicate (PossDupFlag)"}, "dup"));
  }
  if (message.outOfSequence) {
    made.push(element("span", {class: "badge warn", title: "Out of sequence"}, "out of seq"));
  }
  if (message.class === "RESENT") {
    made.push(element("span", {class: "badge warn", title: "Sent again"}, "resent"));
  }
  return made;
}

function fieldsOf(message) {
  return Object.entries(message.fields ?? {}).filter(([, value]) => value !== null).map(([name, value]) =>
    element("span", {class: "pair"}, element("span", {class: "quiet"}, given(name, 40), " "), given(value, LONGEST_VALUE)));
}

export function messageRow(message, number, showsTable) {
  if (!message || message.missing) {
    return element("div", {class: "message", role: "option", "aria-selected": "false"},
                   element("span", {class: "quiet"}, message ? `Message ${number + 1} cannot be read` : "Loading"));
  }
  const direction = directionOf(message);
  const isMoment = isMomentOf(message);
  const words = {sent: "sent", received: "received", neither: "no class"}[direction];
  return element("div", {class: `message ${direction}`, role: "option", "aria-selected": "false"},
    element("span", {class: "time", title: dayOf(message.t, isMoment)}, clock(message.t, isMoment)),
    element("span", {class: "side"},
            element("span", {class: "hidden"}, words),
            element("span", {class: "seq figure", title: "Sequence number"}, String(message.seq)),
            element("span", {class: "type", title: message.class}, given(typeWords(message), 30)),
            flags(message),
            showsTable ? given(message.table, 30, {class: "given table-tag"}) : null,
            element("span", {class: "rest"}, fieldsOf(message), given(message.shown, 300, {class: "given shown quiet", title: null}))));
}
