// The tables as the server tells them, over the one stream of events that a browser has. Whoever shows tables reads them
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

// Connects, for good: by the stream that all tabs share, or by one of our own where a browser has no shared workers.
export function connect() {
  let worker = null;
  try {
    worker = new SharedWorker("/events_worker.js", {type: "module", name: "tabulo"});
  } catch {
    connectAlone();
    return;
  }
  worker.addEventListener("error", connectAlone, {once: true});  // it could not be loaded
  worker.port.addEventListener("message", ({data}) => (data.lost ? tellWhy() : takeLive(data.news, data.isWhole)));
  worker.port.start();
  window.addEventListener("pagehide", () => worker.port.postMessage("gone"));
  window.addEventListener("pageshow", (event) => event.persisted && worker.port.postMessage("back"));
}

function takeLive(news, isWhole) {
  take(news, isWhole);
  if (state.kind !== "connected") {
    setState("connected", "Connected");
  }
}

// The first event of a connection has all tables.
function connectAlone() {
  const source = new EventSource("/api/events");
  let isFirst = true;
  source.addEventListener("tables", (event) => {
    takeLive(JSON.parse(event.data), isFirst);
    isFirst = false;
  });
  source.addEventListener("error", () => {
    source.close();
    tellWhy();
    setTimeout(connectAlone, AGAIN);
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
