import {element, replace} from "./elements.js";

class View {
  constructor(host) {
    replace(host, element("h1", {}, "Blocks"));
  }
  show() {}
  leave() {}
}

export const blocksView = {name: "blocks", title: "Blocks", make: (host) => new View(host)};
