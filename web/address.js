// The state of the page is its address: "#/VIEW?name=value&…". Links lead to addresses, and the way back works.

// {view, parameters} of the address now.
export function current() {
  const text = location.hash.replace(/^#\/?/, "");
  const mark = text.indexOf("?");
  return {
    view: mark < 0 ? text : text.slice(0, mark),
    parameters: new URLSearchParams(mark < 0 ? "" : text.slice(mark + 1)),
  };
}

// The address of a view. Parameters as an object (lists for several values, null for none) or a URLSearchParams.
export function linkTo(view, parameters = {}) {
  const query = new URLSearchParams();
  const pairs = parameters instanceof URLSearchParams ? [...parameters] : Object.entries(parameters);
  for (const [name, value] of pairs) {
    for (const one of [value].flat()) {
      if (one !== null && one !== undefined && one !== "") {
        query.append(name, String(one));
      }
    }
  }
  const text = query.toString();
  return `#/${view}${text ? `?${text}` : ""}`;
}

export function go(view, parameters) {
  location.hash = linkTo(view, parameters);
}

// Changes the address without a step back to where it was: for what moves all the time, as a list that is scrolled.
export function keep(view, parameters) {
  const link = linkTo(view, parameters);
  if (location.hash !== link) {
    history.replaceState(history.state, "", link);
  }
}

// A copy of parameters with some of them changed; null takes one out.
export function changed(parameters, changes) {
  const copy = new URLSearchParams(parameters);
  for (const [name, value] of Object.entries(changes)) {
    copy.delete(name);
    for (const one of [value].flat()) {
      if (one !== null && one !== undefined && one !== "") {
        copy.append(name, String(one));
      }
    }
  }
  return copy;
}
