// The stream of events of a browser, shared by its tabs: a browser has six connections to a server, and a stream in each tab
// would leave none for questions. Runs as a SharedWorker; each tab is a port, to which it posts
//   {news, isWhole}   news as /api/events tells it; isWhole when all tables are in it
//   {lost: true}      the connection is lost, and is made anew
// and which posts "gone" when it is left and "back" when it is returned to.

const AGAIN = 2000;  // milliseconds before another try

const ports = new Set();
const tables = new Map();  // by id
let newest = null;         // the newest news, and when it came
let isLost = false;

function post(words) {
  ports.forEach((port) => port.postMessage(words));
}

function take(news, isWhole) {
  if (isWhole) {
    tables.clear();
  }
  (news.removed ?? []).forEach((id) => tables.delete(id));
  news.tables.forEach((table) => tables.set(table.id, table));
  newest = {news, at: Date.now()};
  isLost = false;
  post({news, isWhole});
}

function open() {
  const source = new EventSource("/api/events");
  let isFirst = true;
  source.addEventListener("tables", (event) => {
    take(JSON.parse(event.data), isFirst);
    isFirst = false;
  });
  source.addEventListener("error", () => {
    source.close();
    isLost = true;
    post({lost: true});
    setTimeout(open, AGAIN);
  });
}

// All that is known, for a tab that knows nothing yet.
function tellAll(port) {
  if (isLost) {
    port.postMessage({lost: true});
  } else if (newest) {
    const news = {...newest.news, now: newest.news.now + Date.now() - newest.at, tables: [...tables.values()], removed: []};
    port.postMessage({news, isWhole: true});
  }
}

self.addEventListener("connect", (event) => {
  const port = event.ports[0];
  ports.add(port);
  port.addEventListener("message", ({data}) => {
    if (data === "gone") {
      ports.delete(port);
    } else {
      ports.add(port);
      tellAll(port);
    }
  });
  port.start();
  tellAll(port);
});

open();
