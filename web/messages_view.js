import {element, replace} from "./elements.js";

class View {
  constructor(host) {
    replace(host, element("h1", {}, "Messages"));
  }
  show() {}
  leave() {}
}

export const messagesView = {name: "messages", title: "Messages", make: (host) => new View(host)};
