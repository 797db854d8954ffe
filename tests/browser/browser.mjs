// Chromium without a window, spoken to over its debugging pipe: JSON messages, each ended by a zero byte.
import { spawn } from "node:child_process";
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

export class Browser {
  static async start(program) {
    const browser = new Browser();
    browser.folder = mkdtempSync(join(tmpdir(), "varnel-browser-"));
    const options = ["--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars", "--remote-debugging-pipe",
      "--no-first-run", "--disable-background-networking", `--user-data-dir=${browser.folder}`];
    browser.process = spawn(program, options, { stdio: ["ignore", "ignore", "ignore", "pipe", "pipe"] });
    browser.waiting = new Map();
    browser.listeners = [];
    browser.last = 0;
    browser.read();
    browser.process.on("exit", () => browser.waiting.forEach(({ reject }) => reject(new Error("the browser ended"))));
    const { targetId } = await browser.send("Target.createTarget", { url: "about:blank" });
    browser.session = (await browser.send("Target.attachToTarget", { targetId, flatten: true })).sessionId;
    for (const domain of ["Page", "Runtime", "Log", "Network"]) await browser.send(`${domain}.enable`);
    return browser;
  }

  read() {
    let rest = Buffer.alloc(0);
    this.process.stdio[4].on("data", (bytes) => {
      rest = Buffer.concat([rest, bytes]);
      for (let end = rest.indexOf(0); end >= 0; end = rest.indexOf(0)) {
        this.hear(JSON.parse(rest.subarray(0, end)));
        rest = rest.subarray(end + 1);
      }
    });
  }

  hear(message) {
    const asked = this.waiting.get(message.id);
    this.waiting.delete(message.id);
    if (asked) message.error ? asked.reject(new Error(message.error.message)) : asked.resolve(message.result);
    else for (const listener of this.listeners) listener(message.method, message.params);
  }

  send(method, params = {}) {
    const id = ++this.last;
    const { session: sessionId } = this;
    this.process.stdio[3].write(`${JSON.stringify({ id, method, params, sessionId })}\0`);
    return new Promise((resolve, reject) => this.waiting.set(id, { resolve, reject }));
  }

  once(method) {
    return new Promise((resolve) => {
      const listener = (name, params) => {
        if (name !== method) return;
        this.listeners.splice(this.listeners.indexOf(listener), 1);
        resolve(params);
      };
      this.listeners.push(listener);
    });
  }

  /// Opens a file. Resolves to what went wrong on the page, which later trouble is added to, and what it asked for.
  async open(path) {
    const seen = { troubles: [], requests: [] };
    this.listeners = [(method, params) => {
      if (method === "Runtime.exceptionThrown") seen.troubles.push(params.exceptionDetails.exception?.description ?? params.exceptionDetails.text);
      if (method === "Runtime.consoleAPICalled") seen.troubles.push(params.args.map((argument) => argument.value).join(" "));
      if (method === "Log.entryAdded") seen.troubles.push(params.entry.text);
      if (method === "Network.requestWillBeSent") seen.requests.push(params.request.url);
      if (method === "Page.javascriptDialogOpening") seen.troubles.push(`dialog: ${params.message}`);
    }];
    const loaded = this.once("Page.loadEventFired");
    await this.send("Page.navigate", { url: `file://${path}` });
    await loaded;
    return seen;
  }

  /// The value of an expression on the page; promises are waited for.
  async evaluate(expression) {
    const { result, exceptionDetails } = await this.send("Runtime.evaluate",
      { expression, awaitPromise: true, returnByValue: true });
    if (exceptionDetails) throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
    return result.value;
  }

  /// A key as a person presses it.
  async press(key, code = key, keyCode = { Tab: 9, Enter: 13, ArrowLeft: 37, ArrowUp: 38, ArrowRight: 39, ArrowDown: 40 }[key]) {
    const text = key === "Enter" ? "\r" : undefined;
    await this.send("Input.dispatchKeyEvent", { type: "keyDown", key, code, windowsVirtualKeyCode: keyCode, text });
    await this.send("Input.dispatchKeyEvent", { type: "keyUp", key, code, windowsVirtualKeyCode: keyCode });
  }

  /// \param scheme "light" or "dark". \param width in pixels.
  async look(scheme, width) {
    await this.send("Emulation.setEmulatedMedia", { features: [{ name: "prefers-color-scheme", value: scheme }] });
    await this.send("Emulation.setDeviceMetricsOverride", { width, height: 900, deviceScaleFactor: 1, mobile: width < 600 });
  }

  async picture() {
    const { data } = await this.send("Page.captureScreenshot", { captureBeyondViewport: true });
    return Buffer.from(data, "base64");
  }

  async print() {
    const { data } = await this.send("Page.printToPDF", { preferCSSPageSize: true });
    return Buffer.from(data, "base64");
  }

  async stop() {
    const ended = new Promise((resolve) => this.process.once("exit", resolve));
    this.session = undefined;
    this.send("Browser.close").catch(() => {});
    await ended;
    rmSync(this.folder, { recursive: true, force: true, maxRetries: 5 });
  }
}
