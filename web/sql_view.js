import {element, replace} from "./elements.js";

class View {
  constructor(host) {
    replace(host, element("h1", {}, "SQL"));
  }
  show() {}
  leave() {}
}

export const sqlView = {name: "sql", title: "SQL", make: (host) => new View(host)};
