import {element, replace} from "./elements.js";

class View {
  constructor(host) {
    replace(host, element("h1", {}, "Order"));
  }
  show() {}
  leave() {}
}

export const orderView = {name: "order", title: "Order", make: (host) => new View(host)};
