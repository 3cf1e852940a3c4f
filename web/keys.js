// The keys of the page and of the view that is shown. A key is not taken while somebody writes in a field, nor with Ctrl,
// Alt or Meta.

let pageKeys = [];
let viewKeys = [];

// Keys are [key as the event names it, what it does in words, function].
export function setPageKeys(keys) {
  pageKeys = keys;
}

export function setViewKeys(keys) {
  viewKeys = keys;
}

const SHOWN = {ArrowLeft: "←", ArrowRight: "→", Escape: "Esc"};

// [key, words] of all that there are now.
export function listed() {
  return [...pageKeys, ...viewKeys].map(([key, words]) => [SHOWN[key] ?? key, words]);
}

// Whether a target of an event is a field that is written in.
export function isWriting(target) {
  return target instanceof HTMLElement &&
      (target.isContentEditable || target.matches("input:not([type=checkbox]):not([type=radio]), textarea, select"));
}

export function listen() {
  document.addEventListener("keydown", (event) => {
    if (event.ctrlKey || event.altKey || event.metaKey || event.defaultPrevented || isWriting(event.target) ||
        document.querySelector("dialog[open]")) {
      return;
    }
    const found = [...viewKeys, ...pageKeys].find(([key, , action]) => action && key === event.key);
    if (found) {
      event.preventDefault();
      found[2]();
    }
  });
}
