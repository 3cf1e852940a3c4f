// One message, opened: what is known about it, its fields by name, its bytes, and how to take it along.
import {linkTo} from "./address.js";
import {copyButton, element, given, replace} from "./elements.js";
import * as figures from "./figures.js";
import {hexDump, wireBytes} from "./hex_dump.js";
import {directionOf, isMomentOf, typeWords} from "./message_row.js";
import {Asker} from "./server.js";
import {moment, zoneName} from "./times.js";

const SHOWN_VALUE = 300;
const SHOWN_BYTES = 2048;

// A value that is longer than what is shown has a button that shows the rest.
function longValue(value, length) {
  const whole = value ?? "";
  if (whole.length <= SHOWN_VALUE) {
    return given(whole);
  }
  const cell = element("span", {});
  const cut = length ? `, of ${figures.bytes(length)} in all` : "";
  const more = element("button", {type: "button", class: "small", onclick: () => {
    replace(cell, given(whole, whole.length), length ? element("span", {class: "under"}, `Cut here${cut}.`) : null);
  }}, `Show ${figures.count(whole.length)} characters${cut}`);
  replace(cell, given(whole.slice(0, SHOWN_VALUE), SHOWN_VALUE), "… ", more);
  return cell;
}

const fact = (name, value) => value === null || value === "" ? null
  : element("div", {}, element("dt", {}, name), element("dd", {}, value));

function facts(message) {
  const isMoment = isMomentOf(message);
  return element("dl", {class: "values"},
    fact("Time", [moment(message.t, isMoment), isMoment ? ` ${zoneName()}` : "",
                  element("span", {class: "under mono"}, `stored ${message.timeRaw}`)]),
    fact("Table", element("a", {href: linkTo("messages", {table: message.table})}, given(message.table, 60))),
    fact("Class", message.class ?? "none"),
    fact("Sequence number", [figures.count(message.seq), message.prevSeq ? `, waited as ${message.prevSeq}` : ""]),
    fact("Uniform id", figures.count(message.uid)),
    fact("Connection message id", String(message.id)),
    fact("Place", element("span", {class: "mono"}, message.at)),
    message.possDup ? fact("Possible duplicate", "yes") : null,
    message.outOfSequence ? fact("Out of sequence", "yes") : null,
    message.text0 ? fact("text0", longValue(message.text0)) : null,
    message.text1 ? fact("text1", longValue(message.text1)) : null,
    message.nonMetadata ? fact("Further data", longValue(message.nonMetadata)) : null);
}

function indexedFields(message) {
  const fields = Object.entries(message.fields ?? {}).filter(([, value]) => value !== null);
  return fields.length === 0 ? null : element("section", {}, element("h3", {}, "Indexed fields"),
    element("dl", {class: "values"}, fields.map(([name, value]) =>
      element("div", {}, element("dt", {}, given(name, 60)), element("dd", {}, longValue(String(value)))))));
}

function tagTable(message) {
  if (!message.tags || message.tags.length === 0) {
    return element("p", {class: "quiet"}, message.wireBytes ? "The wire message has no FIX fields." : "There is no wire message.");
  }
  return element("table", {class: "tags"},
    element("caption", {class: "hidden"}, "Fields of the wire message"),
    element("thead", {}, element("tr", {}, ["Tag", "Name", "Value"].map((name) => element("th", {scope: "col"}, name)))),
    element("tbody", {}, message.tags.map((tag) => element("tr", {},
      element("td", {class: "number"}, String(tag.tag)),
      element("td", {}, tag.name ? given(tag.name, 60) : element("span", {class: "quiet"}, "-")),
      element("td", {}, longValue(tag.value, tag.bytes), tag.valueName ? element("span", {class: "quiet"}, " ", given(tag.valueName, 60)) : null)))));
}

// The fields as lines of text: "35 MsgType = D (NewOrderSingle)".
function fieldsAsText(message) {
  return (message.tags ?? []).map((tag) =>
    `${tag.tag}${tag.name ? ` ${tag.name}` : ""} = ${tag.value}${tag.valueName ? ` (${tag.valueName})` : ""}`).join("\n");
}

function bytesPart(message) {
  if (!message.wire) {
    return null;
  }
  const bytes = wireBytes(message.wire);
  const columns = window.innerWidth < 760 ? 8 : 16;
  const dump = element("pre", {class: "dump", tabindex: "0", "aria-label": "Bytes of the wire message"},
                       hexDump(bytes.subarray(0, SHOWN_BYTES), columns));
  const more = bytes.length <= SHOWN_BYTES ? null
    : element("button", {type: "button", class: "small", onclick: (event) => {
        dump.textContent = hexDump(bytes, columns);
        event.target.remove();
      }}, `Show ${figures.bytes(bytes.length)}`);
  return element("section", {}, element("h3", {}, `Bytes (${figures.bytes(message.wireBytes)})`), dump, more,
                 bytes.length < message.wireBytes
                   ? element("p", {class: "quiet"}, `The server gives the first ${figures.bytes(bytes.length)}.`) : null);
}

function links(message) {
  const ids = message.orderIds ?? [];
  return ids.length === 0 ? null : element("p", {class: "row"}, ids.map((id) =>
    element("a", {href: linkTo("order", {id})}, "Order ", given(id, 60))));
}

export class MessagePanel {
  constructor(closed) {
    this.asker = new Asker();
    this.message = null;
    this.title = element("h2", {});
    this.content = element("div", {class: "panel-content"});
    this.closing = element("button", {type: "button", class: "small", onclick: closed, "aria-label": "Close the message", title: "Close (Esc)"}, "Close");
    this.element = element("section", {class: "panel", "aria-label": "The message that is open", hidden: true},
      element("div", {class: "row spread panel-head"}, this.title, this.closing), this.content);
  }

  async open(table, at) {
    this.element.hidden = false;
    if (getComputedStyle(this.element).position === "fixed") {
      this.closing.focus();  // it covers the list
    }
    if (!this.message) {
      replace(this.title, "Loading");
    }
    try {
      const message = await this.asker.ask("/api/message", {table, at});
      if (message) {
        this.message = message;
        this.draw();
      }
    } catch (error) {
      this.message = null;
      replace(this.title, "No message");
      replace(this.content, element("p", {class: "error", role: "alert"}, given(error.message, 600)));
    }
  }

  draw() {
    const message = this.message;
    if (!message) {
      return;
    }
    const direction = directionOf(message);
    replace(this.title, given(typeWords(message), 60), " ",
            element("span", {class: `badge ${direction}`}, direction === "neither" ? "no class" : direction), " ",
            element("span", {class: "figure quiet"}, String(message.seq)));
    replace(this.content,
      element("div", {class: "row"}, copyButton("Copy fields", () => fieldsAsText(message)),
              message.json ? copyButton("Copy JSON", () => message.json.trimEnd()) : null,
              copyButton("Copy command", () => message.command),
              copyButton("Copy link", () => location.href)),
      links(message), tagTable(message), bytesPart(message), indexedFields(message),
      element("section", {}, element("h3", {}, "The message in its table"), facts(message)));
    this.content.scrollTop = 0;
  }

  close() {
    this.asker.stop();
    this.message = null;
    this.element.hidden = true;
    replace(this.content);
  }
}
