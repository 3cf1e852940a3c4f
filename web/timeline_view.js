import {element, replace} from "./elements.js";

class View {
  constructor(host) {
    replace(host, element("h1", {}, "Timeline"));
  }
  show() {}
  leave() {}
}

export const timelineView = {name: "timeline", title: "Timeline", make: (host) => new View(host)};
