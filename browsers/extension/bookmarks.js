// The browser's bookmarks, in the form that docs/browsers.md describes: read, changed by one request at a time, and listened to.

/** @type {typeof chrome} */
export const api = /** @type {any} */ (globalThis).browser ?? chrome;
export const isFirefox = api.runtime.getURL("").startsWith("moz-extension:");
// That of the texts, which is not always the browser's.
export const language = api.i18n.getMessage("language");

// Bytes of nodes that go into one message, of the 256 KiB that it may have.
const ROOM = 250 * 1024;
// What everything lies in, and what Firefox keeps beside the bookmarks. Whoever writes there damages the user's tags.
const OUT_OF_BOUNDS = new Set(["root________", "tags________"]);
/** @type {Record<string, string>} By what each browser tells its roots apart. */
const ROOTS = isFirefox
  ? { toolbar_____: "bar", menu________: "menu", unfiled_____: "other", mobile______: "mobile" }
  : { "bookmarks-bar": "bar", other: "other", mobile: "mobile" };

/**
 * @typedef {chrome.bookmarks.BookmarkTreeNode & { type?: string }} BrowserNode
 * @typedef {{ id: string, kind: string, title: string, parent?: string, root?: string, syncing?: boolean, url?: string,
 *             added?: number, index?: number }} SaidNode
 * @typedef {{ type: string, id: number, parent?: any, index?: any, title?: any, url?: any, node?: any, expect?: any,
 *             nodes?: any }} Request
 */

/** @param {BrowserNode} node */
function rootOf(node) {
  return ROOTS[isFirefox ? node.id : (node.folderType ?? "")];
}

/** @param {BrowserNode} node */
function kindOf(node) {
  if (rootOf(node)) return "root";
  if (node.type === "separator") return "separator";
  return node.url === undefined ? "folder" : "bookmark";
}

/** Halves of characters, which a page's title may hold, are no UTF-8. @param {string} text */
function wellFormed(text) {
  return text.replace(/[\ud800-\udbff](?![\udc00-\udfff])|(?<![\ud800-\udbff])[\udc00-\udfff]/g, "\ufffd");
}

/** @param {BrowserNode} node @returns {SaidNode} */
function form(node) {
  const kind = kindOf(node);
  /** @type {SaidNode} */
  const said = { id: node.id, kind, title: wellFormed(node.title ?? ""), added: node.dateAdded };
  if (kind === "root") {
    said.root = rootOf(node);
    said.syncing = node.syncing;
  } else {
    said.parent = node.parentId;
  }
  if (kind === "bookmark") said.url = wellFormed(node.url ?? "");
  return said;
}

const encoder = new TextEncoder();

/** The bytes that the browser sends for it, at most: Chromium writes some characters as escapes. @param {SaidNode} said */
function sizeOf(said) {
  return encoder.encode(JSON.stringify(said).replace(/[<\u007f\u2028\u2029]/g, "\\u0000")).length + 1;
}

/** The folders that everything lies in. An administrator's bookmarks are not the user's to change. */
async function roots() {
  const [top] = await api.bookmarks.getTree();
  return (top.children ?? []).filter(each => rootOf(each) && !each.unmodifiable);
}

/** Gives all nodes to `say`, parents first, as many at a time as fit into a message. @param {(nodes: SaidNode[]) => void} say */
export async function read(say) {
  late.clear();
  // Folders may lie in one another too deep for a function that calls itself.
  /** @type {BrowserNode[]} */
  const waiting = (await roots()).reverse();
  /** @type {SaidNode[]} */
  let nodes = [];
  let size = 0;
  for (let node = waiting.pop(); node; node = waiting.pop()) {
    const whole = form(node);
    const fits = sizeOf(whole) <= ROOM;
    // What does not has a place and nothing else.
    const said = fits ? whole : { id: whole.id, kind: "separator", title: "", parent: whole.parent };
    const added = sizeOf(said);
    if (size + added > ROOM) {
      say(nodes);
      nodes = [];
      size = 0;
    }
    nodes.push(said);
    size += added;
    const children = fits ? (node.children ?? []) : [];
    for (const child of children.toReversed()) waiting.push(child);
  }
  return nodes;
}

/** @param {string} id @returns {Promise<BrowserNode>} */
async function get(id) {
  const [node] = await api.bookmarks.get(id);
  return node;
}

/** A node that may be changed. @param {string} id */
async function changeable(id) {
  const node = await get(id);
  if (rootOf(node) || node.unmodifiable || OUT_OF_BOUNDS.has(id) || OUT_OF_BOUNDS.has(node.parentId ?? "")) {
    throw new Error("this folder is the browser's own");
  }
  return node;
}

/** @param {string} parent */
function mustTakeChildren(parent) {
  if (OUT_OF_BOUNDS.has(parent)) throw new Error("this folder is the browser's own");
}

/** Firefox takes a place beyond the end for the end, Chromium refuses it.
 * @template Result
 * @param {string} parent @param {number} index @param {(index: number) => Promise<Result>} act */
async function orAtTheEnd(parent, index, act) {
  try {
    return await act(index);
  } catch (error) {
    const { length } = await api.bookmarks.getChildren(parent);
    if (!(index > length)) throw error;
    return act(length);
  }
}

/** An empty address makes a folder in Chromium. @param {string | undefined} url */
function mustBeAddress(url) {
  if (url === "") throw new Error("the address is empty");
}

// Each of these answers the node as the browser has it afterwards.

/** @param {Request} request @returns {Promise<BrowserNode>} */
async function create({ parent, index, title, url }) {
  mustBeAddress(url);
  mustTakeChildren(parent);
  return orAtTheEnd(parent, index, place => api.bookmarks.create({ parentId: parent, index: place, title, url }));
}

/** Refuses where the user was faster: one of the values that the host expects is another by now. @param {BrowserNode} node
 *  @param {Record<string, unknown>} expect */
function mustBe(node, expect = {}) {
  const there = /** @type {Record<string, unknown>} */ (form(node));
  if (["kind", "title", "url", "parent"].some(name => name in expect && expect[name] !== there[name])) throw new Error("different");
}

/** @param {Request} request @returns {Promise<BrowserNode>} */
async function update({ node, title, url, expect }) {
  mustBeAddress(url);
  mustBe(await changeable(node), expect);
  return api.bookmarks.update(node, { ...(title === undefined ? {} : { title }), ...(url === undefined ? {} : { url }) });
}

/** @param {Request} request @returns {Promise<BrowserNode>} */
async function move({ node, parent, index, expect }) {
  mustTakeChildren(parent);
  const before = await changeable(node);
  mustBe(before, expect);
  // Within a folder Chromium counts the places as they were before.
  const later = !isFirefox && before.parentId === parent && index > (before.index ?? 0) ? 1 : 0;
  return orAtTheEnd(parent, index + later, place => api.bookmarks.move(node, { parentId: parent, index: place }));
}

/** As it was. @param {Request} request */
async function remove({ node, expect }) {
  const before = await changeable(node);
  mustBe(before, expect);
  await api.bookmarks.remove(node);
  return before;
}

/** @type {Record<string, { act: (request: Request) => Promise<BrowserNode>, event: string }>} */
const CHANGES = {
  create: { act: create, event: "created" },
  update: { act: update, event: "changed" },
  move: { act: move, event: "moved" },
  remove: { act: remove, event: "removed" },
};

/** Whether a node that the request names is not there. @param {Request} request */
async function isMissing({ node, parent }) {
  for (const id of [node, parent]) {
    try {
      if (id !== undefined) await get(id);
    } catch {
      return true;
    }
  }
  return false;
}

/** @type {() => void} */
let tellChange = () => {};
/** The events since the request that is being carried out began. @type {string[] | null} */
let heard = null;

/** @param {string} event @param {string} id */
function hear(event, id) {
  if (heard) heard.push(`${event} ${id}`);
  else tellChange();
}

// The browser goes on with what an extension has asked for that is loaded anew meanwhile. Should it make that only after the host
// has read the bookmarks, the host has it made once more.
const LOADED = Date.now();
/** What has come since the bookmarks were read and dates from before this extension was loaded: ids by what they look like.
 *  @type {Map<string, string[]>} */
const late = new Map();

/** @param {SaidNode} node */
function lookOf({ kind, parent, title, url }) {
  return JSON.stringify([kind, parent, title, url]);
}

/** @param {BrowserNode} node */
function noteLate(node) {
  if (node.dateAdded === undefined || node.dateAdded >= LOADED) return;
  const look = lookOf(form(node));
  late.set(look, [...(late.get(look) ?? []), node.id]);
}

/** Takes out what has come late and was made once more. @param {SaidNode[]} made */
async function removeLate(made) {
  for (const node of made) {
    const id = late.get(lookOf(node))?.pop();
    // The user may have removed it already, or put something into it.
    if (id !== undefined) await api.bookmarks.remove(id).catch(() => {});
  }
}

/** Leaves out the events that a change of our own makes: `update` one for each field. @param {string} event */
function forgetEchoes(event) {
  let left = event.startsWith("changed") ? 2 : 1;
  heard = (heard ?? []).filter(each => each !== event || left-- <= 0);
}

/** Has `tell` called when somebody else changes bookmarks. @param {() => void} tell */
export function listen(tell) {
  tellChange = tell;
  api.bookmarks.onCreated.addListener((id, node) => {
    noteLate(node);
    hear("created", id);
  });
  api.bookmarks.onChanged.addListener(id => hear("changed", id));
  api.bookmarks.onMoved.addListener(id => hear("moved", id));
  api.bookmarks.onRemoved.addListener(id => hear("removed", id));
  // Firefox has neither.
  api.bookmarks.onChildrenReordered?.addListener(id => hear("reordered", id));
  api.bookmarks.onImportEnded?.addListener(() => hear("imported", ""));
}

/** @param {BrowserNode} node */
function placed(node) {
  return { ...form(node), index: node.index };
}

/** Changes one node. @param {Request} request @returns {Promise<Record<string, any>>} */
async function changeOne(request) {
  const { act, event } = CHANGES[request.type];
  try {
    const node = await act(request);
    forgetEchoes(`${event} ${node.id}`);
    return request.type === "remove" ? { removed: true } : { node: placed(node) };
  } catch (error) {
    return { error: error instanceof Error ? error.message : String(error), missing: await isMissing(request) };
  }
}

/** Makes nodes one behind the other, and answers for each. The last one shows which place they get; there all others are put
 *  before it, again the last one first: a browser that is asked for all at once makes them in the order of the calls, but Firefox
 *  counts what is in the folder before.
 *  @param {Request} request @returns {Promise<Record<string, any>[]>} */
async function createAll({ nodes, ...request }) {
  /** @type {Request[]} */
  const requests = nodes.map((/** @type {object} */ node) => ({ ...request, ...node })).reverse();
  /** @type {Record<string, any>[]} */
  const answers = [];
  /** @type {number | undefined} */
  let index;
  while (answers.length < requests.length && index === undefined) {
    answers.push(await changeOne(requests[answers.length]));
    index = answers.at(-1)?.node?.index;
  }
  const others = requests.slice(answers.length);
  answers.push(...(await Promise.all(others.map(each => changeOne({ ...each, index })))));
  const made = answers.filter(each => each.node);
  await removeLate(made.map(each => each.node));
  await readBack(made);
  return answers.reverse();
}

/** As what has come before them has left them. @param {Record<string, any>[]} answers */
async function readBack(answers) {
  try {
    const ids = /** @type {[string, ...string[]]} */ (answers.map(each => each.node.id));
    const nodes = await api.bookmarks.get(ids);
    for (const [at, node] of nodes.entries()) answers[at].node = placed(node);
  } catch {
    // The user has removed one already, and is heard. Or none was made.
  }
}

/** Carries out a request that changes something, and gives the answers to `say`: to `create` one for each of its nodes.
 *  @param {Request} request @param {(answer: Record<string, any>) => void} say */
export async function change(request, say) {
  heard = [];
  try {
    const answers = request.type === "create" ? await createAll(request) : [await changeOne(request)];
    for (const [at, answer] of answers.entries()) say({ ...answer, more: at + 1 < answers.length });
  } finally {
    const others = heard.length > 0;
    heard = null;
    if (others) tellChange();
  }
}

/** @param {string} type */
export function isChange(type) {
  return Object.hasOwn(CHANGES, type);
}
