// Makes the elements of the page. Every text goes in as a text node, never as markup: what a message contains cannot
// become an element.

const SVG = "http://www.w3.org/2000/svg";

function fill(made, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) {
    if (value === null || value === undefined || value === false) {
      continue;
    }
    if (name.startsWith("on")) {
      made.addEventListener(name.slice(2), value);
    } else {
      made.setAttribute(name, value === true ? "" : String(value));
    }
  }
  append(made, children);
  return made;
}

// Children are elements, texts, numbers, lists of these, or null for none.
export function append(parent, children) {
  for (const child of [children].flat(3)) {
    if (child !== null && child !== undefined) {
      parent.append(child instanceof Node ? child : document.createTextNode(String(child)));
    }
  }
}

// An element of HTML: element("a", {href: "#/overview", onclick: f}, "text", another).
export function element(tag, attributes = {}, ...children) {
  return fill(document.createElement(tag), attributes, children);
}

// An element of SVG, in the same way.
export function drawing(tag, attributes = {}, ...children) {
  return fill(document.createElementNS(SVG, tag), attributes, children);
}

export function replace(parent, ...children) {
  parent.replaceChildren();
  append(parent, children);
}

// A text in which nothing is invisible: SOH as |, other control characters as \xHH, as the command shows them.
export function visible(text) {
  return text.replace(/[\u0000-\u001f\u007f-\u009f]/g, (one) =>
    one === "\u0001" ? "|" : `\\x${one.charCodeAt(0).toString(16).toUpperCase().padStart(2, "0")}`);
}

// A text from a message or a file: isolated, so that marks for another direction of writing end with it, and cut behind
// `most` characters; the whole is then in its title (up to 2,000 characters) and in the view that shows the message.
export function given(text, most = 200, attributes = {}) {
  const whole = text === null || text === undefined ? "" : visible(String(text));
  const cut = whole.length > most;
  return element("bdi", {class: "given", title: cut ? whole.slice(0, 2000) : null, ...attributes},
                 cut ? whole.slice(0, most) + "…" : whole);
}

// Sets a text only where it differs, so that selections and screen readers are left alone.
export function setText(target, text) {
  if (target.textContent !== text) {
    target.textContent = text;
  }
}

// A button that copies a text, and says so for a while.
export function copyButton(label, textOf) {
  const button = element("button", {type: "button", class: "small"}, label);
  let timer = 0;
  button.addEventListener("click", async () => {
    let told = "Copied";
    try {
      await navigator.clipboard.writeText(textOf());
    } catch {
      told = copyBySelection(textOf()) ? "Copied" : "The browser did not allow copying";
    }
    button.textContent = told;
    clearTimeout(timer);
    timer = setTimeout(() => { button.textContent = label; }, 1500);
  });
  return button;
}

// For pages over plain HTTP from another machine, which have no clipboard of their own.
function copyBySelection(text) {
  const area = element("textarea", {class: "hidden"});
  area.value = text;
  document.body.append(area);
  area.select();
  const copied = document.execCommand("copy");
  area.remove();
  return copied;
}

// The page's colours as the theme has them now, for a canvas: a name as in style.css.
export function colour(name) {
  const probe = element("span", {hidden: true});
  probe.style.color = `var(--${name})`;
  document.body.append(probe);
  const value = getComputedStyle(probe).color;
  probe.remove();
  return value;
}

// A canvas of a size in CSS pixels, sharp on every screen; gives its context.
export function sizedContext(canvas, width, height) {
  const scale = window.devicePixelRatio || 1;
  canvas.width = Math.round(width * scale);
  canvas.height = Math.round(height * scale);
  canvas.style.width = `${width}px`;
  canvas.style.height = `${height}px`;
  const context = canvas.getContext("2d");
  context.setTransform(scale, 0, 0, scale, 0, 0);
  context.clearRect(0, 0, width, height);
  return context;
}
