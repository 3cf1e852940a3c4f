// Asks the server. Every answer is a JSON object (docs/serve.md); what is refused becomes a ServerError whose message is
// a sentence for eyes.

export class ServerError extends Error {
  constructor(status, message) {
    super(message);
    this.status = status;
  }
}

export const HOW_TO_GET_IN =
    "This browser has no key for the server, or the key of an earlier run. Open the address that tabulo serve printed when " +
    "it was started; it ends in ?token= and a long word.";

// Parameters as a URLSearchParams, or an object whose values are texts, numbers, lists of these, or null for none.
export function addressOf(path, parameters = {}) {
  const query = parameters instanceof URLSearchParams ? parameters : new URLSearchParams();
  if (query !== parameters) {
    for (const [name, value] of Object.entries(parameters)) {
      for (const one of [value].flat()) {
        if (one !== null && one !== undefined && one !== "") {
          query.append(name, String(one));
        }
      }
    }
  }
  const text = query.toString();
  return text ? `${path}?${text}` : path;
}

async function answerOf(request) {
  let response;
  try {
    response = await request;
  } catch (error) {
    if (error.name === "AbortError") {
      throw error;
    }
    throw new ServerError(0, "The server does not answer. Does tabulo serve still run?");
  }
  let answer = null;
  try {
    answer = await response.json();
  } catch (error) {
    if (error.name === "AbortError") {
      throw error;
    }
  }
  if (response.status === 401) {
    throw new ServerError(401, HOW_TO_GET_IN);
  }
  if (!response.ok || answer === null) {
    throw new ServerError(response.status, sentence(answer?.error ?? `The server answers with status ${response.status}`));
  }
  return answer;
}

// The server's words as a sentence.
export function sentence(text) {
  const begun = text.charAt(0).toUpperCase() + text.slice(1);
  return /[.!?]$/.test(begun) ? begun : begun + ".";
}

export function ask(path, parameters, signal) {
  return answerOf(fetch(addressOf(path, parameters), {signal, headers: {Accept: "application/json"}}));
}

export function post(path, parameters, body, signal) {
  return answerOf(fetch(addressOf(path, parameters),
                        {method: "POST", body, signal, headers: {"Content-Type": "text/plain; charset=utf-8"}}));
}

// What a list of answers of one kind needs: a later question ends the one before it, so that answers cannot overtake.
export class Asker {
  #running = null;

  // The answer, or null when a later question has ended this one.
  async ask(path, parameters) {
    this.stop();
    const running = new AbortController();
    this.#running = running;
    try {
      const answer = await ask(path, parameters, running.signal);
      return this.#running === running ? answer : null;
    } catch (error) {
      if (error.name === "AbortError" || this.#running !== running) {
        return null;
      }
      throw error;
    }
  }

  stop() {
    this.#running?.abort();
    this.#running = null;
  }
}
