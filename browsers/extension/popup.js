// Shows the state that the host tells. Everything is put in as text.

import { api, language } from "./bookmarks.js";

const numbers = new Intl.NumberFormat(language);
const time = new Intl.DateTimeFormat(language, { timeStyle: "short" });
const dayAndTime = new Intl.DateTimeFormat(language, { dateStyle: "medium", timeStyle: "short" });

/** @param {string} id */
function element(id) {
  return /** @type {HTMLElement} */ (document.getElementById(id));
}

/** @param {string} name @param {string[]} parts */
function text(name, ...parts) {
  return api.i18n.getMessage(name, parts);
}

/** @param {unknown} number */
function shownNumber(number) {
  return numbers.format(Number.isFinite(number) ? Number(number) : 0);
}

/** With its day, unless that is today. @param {number} milliseconds */
function shownTime(milliseconds) {
  const date = new Date(milliseconds);
  return (date.toDateString() === new Date().toDateString() ? time : dayAndTime).format(date);
}

/** @param {any} state */
function summary(state) {
  switch (state.state) {
    case "idle":
      return Number.isFinite(state.since) ? text("inStepSince", shownTime(state.since)) : text("notInStep");
    case "syncing":
      return state.progress
        ? text("syncingOf", shownNumber(state.progress.done), shownNumber(state.progress.of))
        : text("syncing");
    case "paused":
      return text("paused");
    case "problem":
      return text("problem");
    default:
      return text("connecting");
  }
}

/** @param {any} progress */
function showProgress(progress) {
  const bar = /** @type {HTMLProgressElement} */ (element("progress"));
  bar.hidden = !progress;
  if (!progress) return;
  bar.max = Math.max(Number(progress.of) || 0, 1);
  bar.value = Number(progress.done) || 0;
}

/** @param {any} last */
function showLast(last) {
  element("last").hidden = !last;
  if (!last) return;
  element("time").textContent = Number.isFinite(last.time) ? shownTime(last.time) : "";
  for (const name of ["pushed", "pulled", "conflicts"]) {
    const number = element(name);
    const label = /** @type {HTMLElement} */ (number.previousElementSibling);
    number.hidden = label.hidden = !(name in last);
    number.textContent = shownNumber(last[name]);
  }
}

/** As text, in which commands stand in backquotes. @param {string} id @param {unknown} said */
function say(id, said = "") {
  const parts = String(said).split("`").map((part, at) => {
    if (at % 2 === 0) return part;
    const command = document.createElement("code");
    command.textContent = part;
    return command;
  });
  element(id).replaceChildren(...parts);
}

/** @param {any} problem */
function showProblem(problem) {
  element("problem").hidden = !problem;
  say("problem-text", problem?.text);
  say("remedy", problem?.remedy);
  /** @type {HTMLElement} */ (element("remedy").parentElement).hidden = !problem?.remedy;
}

/** @param {any} notice */
function showNotice(notice) {
  element("notice").hidden = !notice;
  element("notice").textContent = notice?.text ?? "";
}

/** A button that nothing comes of keeps the keyboard's focus. @param {string} id @param {boolean} works */
function enable(id, works) {
  element(id).setAttribute("aria-disabled", String(!works));
}

/** @param {any} state */
function show(state) {
  element("state").textContent = summary(state);
  showProgress(state.state === "syncing" ? state.progress : undefined);
  showProblem(state.problem);
  showNotice(state.notice);
  showLast(state.last);
  enable("sync", state.state === "idle" || state.state === "problem");
  element("pause").textContent = text(state.state === "paused" ? "resume" : "pause");
  element("pause").dataset.paused = String(state.state === "paused");
  element("stop").hidden = state.state !== "syncing";
}

document.documentElement.lang = language;
document.title = text("name");
for (const each of document.querySelectorAll("[data-message]")) {
  each.textContent = text(/** @type {HTMLElement} */ (each).dataset.message ?? "");
}

const background = api.runtime.connect();
background.onMessage.addListener(show);

/** @param {string} id @param {() => object} message */
function onPress(id, message) {
  element(id).addEventListener("click", () => {
    if (element(id).getAttribute("aria-disabled") !== "true") background.postMessage(message());
  });
}

onPress("sync", () => ({ type: "syncNow" }));
onPress("pause", () => ({ type: "pause", paused: element("pause").dataset.paused !== "true" }));
onPress("stop", () => ({ type: "stop" }));
