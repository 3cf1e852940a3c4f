// A verification of one table, as the server does it: progress, findings, and the end.
import {addressOf, sentence} from "./server.js";

export class Verifying {
  #source = null;

  // Calls progress(done, total), finding(finding), ended(result), and failed(sentence) once at most.
  constructor(table, {progress, finding, ended, failed}) {
    const source = new EventSource(addressOf("/api/verify", {table}));
    this.#source = source;
    const on = (name, action) => source.addEventListener(name, (event) => action(JSON.parse(event.data)));
    on("progress", ({done, total}) => progress(done, total));
    on("finding", finding);
    on("end", (result) => {
      this.stop();
      ended(result);
    });
    on("failed", ({error}) => {
      this.stop();
      failed(sentence(error));
    });
    source.addEventListener("error", () => {
      if (this.#source) {
        this.stop();
        failed("The server has ended the verification, or refused it. Others may verify at the same time: try again in a while.");
      }
    });
  }

  stop() {
    this.#source?.close();
    this.#source = null;
  }
}
