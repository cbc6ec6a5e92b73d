// Carries messages between the browser and corvane-browser-host, and knows nothing of merging. docs/browsers.md lists them.

import { api, change, isChange, isFirefox, language, listen, read } from "./bookmarks.js";

const PROTOCOL = 1;
const HOST = "com.keldra.corvane.bookmarks";
// Milliseconds.
const QUIET = 1000;
const FIRST_RETRY = 1000;
const LAST_RETRY = 600_000;
const LASTING = 60_000;
const FILLED = 3000;

/** @type {chrome.runtime.Port | null} To the host. */
let host = null;
/** @type {Set<chrome.runtime.Port>} To the popups that are open. */
const popups = new Set();
/** @type {Record<string, any>} What popups show. */
let state = { state: "connecting" };
let retry = 0;
let connectedAt = 0;
/** @type {ReturnType<typeof setTimeout> | undefined} */
let retryTimer;
/** @type {ReturnType<typeof setTimeout> | undefined} */
let quietTimer;
// Whether the host knows that something is different, and has not read since.
let told = false;
let changedAt = Date.now();

/** Says nothing to a host that another has followed, or that has just ended. @param {Record<string, any>} message */
function say(message, to = host) {
  if (!to || to !== host) return;
  try {
    to.postMessage(message);
  } catch {
    // `lose` is about to be called.
  }
}

// ---- changes

function noteChange() {
  changedAt = Date.now();
  clearTimeout(quietTimer);
  quietTimer = setTimeout(tellChange, QUIET);
}

function tellChange() {
  if (told || !host) return;
  told = true;
  say({ type: "changed" });
}

// ---- requests

/** @param {import("./bookmarks.js").Request} request @param {chrome.runtime.Port} asker */
async function answerRead({ id }, asker) {
  // What has changed until now is in what is read.
  clearTimeout(quietTimer);
  told = false;
  try {
    const rest = await read(nodes => say({ type: "answer", id, nodes, more: true }, asker));
    say({ type: "answer", id, nodes: rest, more: false }, asker);
  } catch (error) {
    say({ type: "answer", id, error: String(error), missing: false }, asker);
  }
}

let work = Promise.resolve();

/** One after the other, also those of two hosts. @param {import("./bookmarks.js").Request} request @param {chrome.runtime.Port} asker */
function answer(request, asker) {
  work = work.then(async () => {
    if (request.type === "read") await answerRead(request, asker);
    else await change(request, answer => say({ type: "answer", id: request.id, ...answer }, asker));
  });
}

// ---- the host

/** What `area` keeps by that name, made now if it is not there. @param {chrome.storage.StorageArea} area @param {string} name */
async function identifier(area, name) {
  const kept = (await area.get(name))[name];
  if (typeof kept === "string") return kept;
  const made = crypto.randomUUID();
  await area.set({ [name]: made });
  return made;
}

async function version() {
  if (isFirefox) return (await /** @type {any} */ (api.runtime).getBrowserInfo()).version;
  return /Chrome\/(\S+)/.exec(navigator.userAgent)?.[1] ?? "";
}

async function greeting() {
  const { generation } = await api.storage.local.get({ generation: 0 });
  return {
    type: "hello",
    protocol: PROTOCOL,
    token: await identifier(api.storage.local, "token"),
    browser: isFirefox ? "firefox" : "chromium",
    version: await version(),
    extension: api.runtime.getManifest().version,
    language,
    profile: "",
    // Of this start of the browser.
    run: await identifier(api.storage.session, "run"),
    generation,
  };
}

/**
 * Waits until nothing has changed for so many milliseconds. The first session has to find all that is about to come without the
 * user, for else it counts as theirs, and stands there twice: what the host had asked of this extension before it was loaded
 * anew; and in a new profile the browser's own bookmarks, which other browsers may have given as well.
 * @param {number} time
 */
async function quietFor(time) {
  for (let rest; (rest = changedAt + time - Date.now()) > 0;) await new Promise(resolve => setTimeout(resolve, rest));
}

let connecting = false;

async function connect() {
  if (host || connecting) return;
  connecting = true;
  clearTimeout(retryTimer);
  try {
    const { paused } = await api.storage.local.get({ paused: false });
    const hello = await greeting();
    await quietFor(hello.generation === 0 ? FILLED : QUIET);
    told = false;
    connectedAt = Date.now();
    host = api.runtime.connectNative(HOST);
    host.onMessage.addListener(hear);
    host.onDisconnect.addListener(lose);
    say(hello);
    if (paused) say({ type: "pause", paused });
  } finally {
    connecting = false;
  }
}

/** @param {any} message @param {chrome.runtime.Port} port */
function hear(message, port) {
  if (message.type === "read" || isChange(message.type)) answer(message, port);
  else if (message.type === "state") show(message);
  else if (message.type === "token" && typeof message.token === "string") api.storage.local.set({ token: message.token });
  else if (message.type === "generation" && Number.isSafeInteger(message.generation)) {
    api.storage.local.set({ generation: message.generation });
  }
}

/** @param {chrome.runtime.Port} port */
function lose(port) {
  // Reading it is what keeps Chromium from reporting it.
  const cause = api.runtime.lastError?.message ?? /** @type {any} */ (port).error?.message ?? "";
  host = null;
  // What the host has said last may be why it ended.
  if (state.state !== "problem") {
    show({ state: "problem", problem: { text: api.i18n.getMessage("unreachable", cause), remedy: "`loomerctl browser status`" } });
  }
  // A host that ends again and again is started less and less often.
  const hasLasted = Date.now() - connectedAt > LASTING;
  retry = hasLasted ? FIRST_RETRY : Math.min(Math.max(retry * 4, FIRST_RETRY), LAST_RETRY);
  retryTimer = setTimeout(connect, retry);
}

// ---- the popup

/** @param {Record<string, any>} news */
function show(news) {
  state = news;
  for (const each of popups) each.postMessage(state);
  const isProblem = state.state === "problem";
  const name = api.i18n.getMessage("name");
  api.action.setBadgeText({ text: isProblem ? "!" : "" });
  api.action.setTitle({ title: isProblem ? `${name}: ${api.i18n.getMessage("problem")}` : name });
}

/** @param {any} message */
function hearPopup(message) {
  if (message.type === "pause") {
    const paused = message.paused === true;
    api.storage.local.set({ paused });
    say({ type: "pause", paused });
  } else if (message.type === "syncNow" || message.type === "stop") {
    say({ type: message.type });
  }
}

api.runtime.onConnect.addListener(popup => {
  popups.add(popup);
  popup.onDisconnect.addListener(() => popups.delete(popup));
  popup.onMessage.addListener(hearPopup);
  popup.postMessage(state);
  if (host) say({ type: "status" });
  else connect();
});

// The browser starts this program at its own start, at an update, and when something happens here.
api.runtime.onStartup.addListener(connect);
api.runtime.onInstalled.addListener(connect);
listen(noteChange);
connect();
