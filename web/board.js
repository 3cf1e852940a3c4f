// The tables as the server tells them, over the one stream of events that a page has. Whoever shows tables reads them
// here and is called when some have changed; the connection is made anew when it is lost.
import {ask, HOW_TO_GET_IN} from "./server.js";

const AGAIN = 2000;  // milliseconds before another try

const tables = new Map();  // by id, in the order of the server
const listeners = new Set();
const connectionListeners = new Set();
let problems = [];
let state = {kind: "connecting", text: "Connecting"};
let clockAhead = 0;  // of the server's clock before the viewer's, in milliseconds
let known = false;

// All tables, by id.
export function allTables() {
  return [...tables.values()].sort((a, b) => (a.id < b.id ? -1 : a.id > b.id ? 1 : 0));
}

export function messageTables() {
  return allTables().filter((table) => table.kind === "messages");
}

export function tableOf(id) {
  return tables.get(id) ?? null;
}

// Whether the tables have been told yet.
export function isKnown() {
  return known;
}

export function problemsTold() {
  return problems;
}

// The time at the server, in milliseconds since 1970.
export function serverNow() {
  return Date.now() + clockAhead;
}

// Calls with the ids of the tables that have changed or gone. Returns what ends that.
export function onTables(listener) {
  listeners.add(listener);
  return () => listeners.delete(listener);
}

export function onConnection(listener) {
  connectionListeners.add(listener);
  listener(state);
}

function setState(kind, text) {
  state = {kind, text};
  connectionListeners.forEach((listener) => listener(state));
}

function take(news, isWhole) {
  const ids = new Set(news.removed ?? []);
  clockAhead = typeof news.now === "number" ? news.now - Date.now() : clockAhead;
  problems = news.problems ?? problems;
  const told = new Set(news.tables.map((table) => table.id));
  const gone = isWhole ? [...tables.keys()].filter((id) => !told.has(id)) : [...ids];
  for (const id of gone) {
    tables.delete(id);
    ids.add(id);
  }
  for (const table of news.tables) {
    tables.set(table.id, table);
    ids.add(table.id);
  }
  known = true;
  listeners.forEach((listener) => listener(ids));
}

// Connects, for good. The first event of a connection has all tables.
export function connect() {
  const source = new EventSource("/api/events");
  let isFirst = true;
  source.addEventListener("tables", (event) => {
    take(JSON.parse(event.data), isFirst);
    isFirst = false;
    if (state.kind !== "connected") {
      setState("connected", "Connected");
    }
  });
  source.addEventListener("error", () => {
    source.close();
    tellWhy();
    setTimeout(connect, AGAIN);
  });
}

// A stream of events does not say why it was refused; a question does.
async function tellWhy() {
  setState("lost", "Connection lost, trying again");
  try {
    await ask("/api/tables");
  } catch (error) {
    if (error.status === 401) {
      setState("refused", HOW_TO_GET_IN);
    } else if (error.status) {
      setState("lost", `${error.message} Trying again`);
    }
  }
}
