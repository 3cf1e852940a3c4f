// The page: shows the view that the address names, and what surrounds every view. A view is
// {name, title, make(host, parameters)}; what make gives has show(parameters) for another address of the same view, leave(),
// redraw() for another zone or theme, and keys as keys.js takes them.
import {current, go, linkTo} from "./address.js";
import * as board from "./board.js";
import {blocksView} from "./blocks_view.js";
import {element, replace} from "./elements.js";
import * as keys from "./keys.js";
import {messagesView} from "./messages_view.js";
import {orderView} from "./order_view.js";
import {overviewView} from "./overview_view.js";
import {sqlView} from "./sql_view.js";
import {startTheme} from "./theme.js";
import {timelineView} from "./timeline_view.js";
import {chooseZone, onZone, viewersZone, zoneChoice, zoneName} from "./times.js";

const VIEWS = [overviewView, messagesView, timelineView, orderView, blocksView, sqlView];
const SHARED = ["table", "class", "type", "not-type", "seq", "uid", "id", "since", "until", "poss-dup", "where", "text", "merge"];
const FILTERED = ["messages", "timeline"];
const WITH_TABLES = [...FILTERED, "blocks"];

const main = document.getElementById("main");
const links = new Map();
let shown = null;  // {view, instance, host}

function showAddress() {
  const {view: name, parameters} = current();
  const view = VIEWS.find((one) => one.name === name) ?? overviewView;
  if (shown?.view === view) {
    shown.instance.show(parameters);
  } else {
    const isFirst = shown === null;
    shown?.instance.leave();
    const host = element("div", {class: `view ${view.name}`});
    replace(main, host);
    shown = {view, host, instance: view.make(host, parameters)};
    window.scrollTo(0, 0);
    if (!isFirst) {
      main.focus({preventScroll: true});
    }
  }
  keys.setViewKeys(shown.instance.keys ?? []);
  document.title = `${view.title} - Tabulo`;
  showNavigation(view, parameters);
}

// Links to the other views keep the tables that were chosen, and between Messages and Timeline the filters.
function showNavigation(view, parameters) {
  const tables = parameters.getAll("table");
  const filters = new URLSearchParams([...parameters].filter(([name]) => SHARED.includes(name)));
  for (const [one, link] of links) {
    const kept = one === view || !WITH_TABLES.includes(one.name) ? {}
      : FILTERED.includes(one.name) && FILTERED.includes(view.name) ? filters
      : {table: one.name === "blocks" ? tables.slice(0, 1) : tables};
    link.href = linkTo(one.name, kept);
    if (one === view) {
      link.setAttribute("aria-current", "page");
    } else {
      link.removeAttribute("aria-current");
    }
  }
}

function makeNavigation() {
  const list = document.getElementById("views");
  for (const view of VIEWS) {
    const link = element("a", {href: linkTo(view.name)}, view.title);
    links.set(view, link);
    list.append(element("li", {}, link));
  }
}

function makeOrderBox() {
  const field = document.getElementById("order-id");
  document.getElementById("order-box").addEventListener("submit", (event) => {
    event.preventDefault();
    const id = field.value.trim();
    if (id) {
      go("order", {id});
      field.blur();
    }
  });
  // What is pasted while nobody writes in a field is taken for an order id.
  document.addEventListener("paste", (event) => {
    const text = event.clipboardData?.getData("text/plain").trim() ?? "";
    if (text && !keys.isWriting(event.target)) {
      field.value = text.slice(0, field.maxLength);
      field.focus();
    }
  });
  return () => {
    field.focus();
    field.select();
  };
}

function makeZoneChoice() {
  const choice = document.getElementById("zone");
  replace(choice, element("option", {value: "viewer"}, `Here: ${viewersZone()}`), element("option", {value: "utc"}, "UTC"));
  choice.value = zoneChoice();
  choice.addEventListener("change", () => chooseZone(choice.value));
  const tell = () => { document.getElementById("zone-told").textContent = `Times are ${zoneName()}`; };
  tell();
  onZone(() => {
    tell();
    shown?.instance.redraw?.();
  });
}

function showKeys() {
  const list = document.getElementById("key-list");
  replace(list, keys.listed().map(([key, words]) => element("div", {}, element("dt", {}, element("kbd", {}, key)),
                                                            element("dd", {}, words))));
  document.getElementById("keys").showModal();
}

function start() {
  makeNavigation();
  const focusOrder = makeOrderBox();
  makeZoneChoice();
  startTheme(document.getElementById("theme"), () => shown?.instance.redraw?.());
  document.getElementById("show-keys").addEventListener("click", showKeys);
  document.getElementById("skip").addEventListener("click", (event) => {
    event.preventDefault();
    main.focus();
  });
  keys.setPageKeys([
    ["/", "go to the box for an order id", focusOrder],
    ["?", "this list", showKeys],
    ...VIEWS.map((view, i) => [String(i + 1), `the view ${view.title}`, () => { location.hash = links.get(view).hash; }]),
  ]);
  keys.listen();
  board.onConnection(({kind, text}) => {
    const line = document.getElementById("connection");
    line.className = kind;
    line.textContent = text;
  });
  board.connect();
  window.addEventListener("hashchange", showAddress);
  showAddress();
}

start();
