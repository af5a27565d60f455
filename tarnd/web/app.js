// Files in a browser, through the routes that every client uses. The session is kept by this tab and sent as a header
// or in the body of a form, never in an address. Names come into the page as text: nothing here reads HTML.
"use strict";

const byId = (id) => document.getElementById(id);

// The page

function make(tag, attributes = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (typeof value === "function") element.addEventListener(name, value);
    else if (value === true) element.setAttribute(name, "");
    else if (value !== false && value !== undefined) element.setAttribute(name, value);
  }
  element.append(...children);
  return element;
}

// Keeps a name that is written from right to left from rearranging what stands beside it, and shows what would turn the
// direction within it: "gpj.exe" must not read as "exe.jpg".
const named = (name) => make("bdi", {}, name.replace(/[\u202a-\u202e\u2066-\u2069]/g, "\ufffd"));

const button = (label, click, attributes = {}) => make("button", { type: "button", click, ...attributes }, label);

let silence = 0;

// What lies behind an open dialog nobody hears.
function say(text, isError = false) {
  const said = byId(byId("dialog").open ? "dialog-status" : "said");
  clearTimeout(silence);
  said.replaceChildren(text);
  said.className = isError ? "notice error" : "notice";
  if (!isError) silence = setTimeout(() => said.replaceChildren(), 8000);
}

const sayFailure = (failure) => {
  if (!(failure instanceof SessionEnded)) say(failure.message, true);
};

// Runs what a control does; a failure is said and nothing else.
const saying = (action) => async (event) => {
  try {
    await action(event);
  } catch (failure) {
    sayFailure(failure);
  }
};

function sizeText(bytes) {
  if (bytes < 1024) return bytes === 1 ? "1 byte" : `${bytes} bytes`;
  let unit = 0;
  let size = bytes / 1024;
  for (; size >= 1024 && unit < 5; ++unit) size /= 1024;
  return `${size.toFixed(size < 10 ? 1 : 0)} ${"KMGTPE"[unit]}iB`;
}

const dateFormat = new Intl.DateTimeFormat(undefined, { dateStyle: "medium" });
const clockFormat = new Intl.DateTimeFormat(undefined, { timeStyle: "short" });

function timeElement(milliseconds) {
  const time = new Date(milliseconds);
  const clock = make("span", {}, clockFormat.format(time));
  return make("time", { datetime: time.toISOString() }, dateFormat.format(time), " ", clock);
}

// The service

const service = new URL("service/v1/", document.baseURI);

class Refusal extends Error {
  constructor(status, sentence) {
    super(sentence);
    this.status = status;
  }
}

class SessionEnded extends Error {}

let lastUser = null; // who had the session before it ended
let session = JSON.parse(sessionStorage.getItem("tarn") ?? "null"); // {id, user}

function keepSession(fresh) {
  session = fresh;
  if (fresh) sessionStorage.setItem("tarn", JSON.stringify(fresh));
  else sessionStorage.removeItem("tarn");
}

const child = (element, name) => [...element.children].find((each) => each.localName === name);
const textOf = (element, name) => child(element, name)?.textContent ?? "";
const numberOf = (element, name) => Number(textOf(element, name));
const all = (element, name) => [...element.getElementsByTagName(name)];

const parseXml = (text) => new DOMParser().parseFromString(text, "application/xml").documentElement;

const pathText = (names) => "/" + names.join("/");
const encodedPath = (names) => "/" + names.map(encodeURIComponent).join("/");

function address(route, names, query = {}) {
  const url = new URL(route + (names ? encodedPath(names) : ""), service);
  // Not URLSearchParams, which writes a space as "+".
  const pairs = Object.entries(query).map(([name, value]) => `${name}=${encodeURIComponent(value)}`);
  return url.href + (pairs.length ? "?" + pairs.join("&") : "");
}

const pause = (seconds) => new Promise((resolve) => setTimeout(resolve, seconds * 1000));

// One request. XMLHttpRequest because it alone tells the progress of an upload.
function exchange(method, url, headers, { body, progress, signal } = {}) {
  return new Promise((resolve, reject) => {
    const request = new XMLHttpRequest();
    request.open(method, url);
    for (const [name, value] of Object.entries(headers)) request.setRequestHeader(name, value);
    if (progress) request.upload.addEventListener("progress", progress);
    request.addEventListener("load", () => resolve(request));
    request.addEventListener("error", () => reject(new Error("The service was not reached. Try again.")));
    request.addEventListener("abort", () => reject(new DOMException("Cancelled.", "AbortError")));
    signal?.addEventListener("abort", () => request.abort());
    request.send(body);
  });
}

// The document of the reply. What the service had no time for is sent again when it has: nothing has changed then.
async function send(method, url, headers, options) {
  const tries = 4;
  for (let tried = 1; ; ++tried) {
    const reply = await exchange(method, url, headers, options);
    if (reply.status === 200) return parseXml(reply.responseText);
    if (reply.status === 429 && tried < tries) {
      await pause(Number(reply.getResponseHeader("Retry-After")) || 1);
      continue;
    }
    const isXml = (reply.getResponseHeader("Content-Type") ?? "").startsWith("application/xml");
    const sentence = isXml ? textOf(parseXml(reply.responseText), "code") : "";
    throw new Refusal(reply.status, sentence || `The service answered with ${reply.status}.`);
  }
}

// The same in the session. @param place  {bucket, names}, where the route has a path
async function ask(method, route, place, query = {}, options = {}) {
  const asked = session;
  if (!asked) throw new SessionEnded();
  const bucket = place?.bucket ? { bucket: place.bucket } : {};
  const url = address(route, place?.names, { ...query, ...bucket });
  try {
    return await send(method, url, { "x-qz-tarn-session-id": asked.id }, options);
  } catch (failure) {
    if (failure.status !== 401) throw failure;
    if (session === asked) endSession("Your session has ended. Sign in again to go on where you were.");
    throw new SessionEnded();
  }
}

function entryOf(record, kind, bucket, names) {
  const name = textOf(record, "Name");
  return {
    kind,
    name,
    bucket,
    names,
    size: numberOf(record, "Size"),
    modified: numberOf(record, "LastModified"),
    writable: textOf(record, "Writable") === "true",
    watermark: textOf(record, "Watermark"),
  };
}

const keyOf = (place) => `${place.bucket}:${pathText(place.names)}`;

// Signing in and out

function showSignIn(why = "") {
  byId("dialog").close();
  byId("app").hidden = true;
  byId("sign-in").hidden = false;
  byId("sign-in-why").textContent = why;
  document.title = "Sign in – Tarn";
  byId(byId("user").value ? "token" : "user").focus();
}

function showApp() {
  byId("sign-in").hidden = true;
  byId("app").hidden = false;
  byId("who").textContent = session.user;
  return show(true);
}

// What was waiting to be deleted stays: nobody may be told that it has gone.
function endSession(why) {
  for (const deletion of [...deletions.values()]) deletion.forget();
  byId("user").value = lastUser = session.user;
  keepSession(null);
  shared = null;
  byId("view").replaceChildren();
  byId("said").replaceChildren();
  showSignIn(why);
}

async function signIn(event) {
  event.preventDefault();
  const { user, token } = event.target.elements;
  const why = byId("sign-in-why");
  why.textContent = "";
  try {
    const reply = await send("GET", address("login"), { "x-qz-authentication-token": token.value.trim() });
    const fresh = { id: textOf(reply, "TarnSessionId"), user: user.value };
    await requireOwner(fresh);
    if (lastUser !== fresh.user) leavePlaceOf(lastUser);
    keepSession(fresh);
  } catch (failure) {
    why.textContent = failure.message;
    token.focus();
    return;
  }
  token.value = "";
  await showApp();
}

// Another one is not shown where somebody was and what they were about to upload.
function leavePlaceOf(user) {
  for (const upload of [...uploads]) cancelUpload(upload);
  if (user !== null) history.replaceState(null, "", "#/");
}

// The service knows the user by the token alone: whoever typed another name must not see this one's files under it.
async function requireOwner({ id, user }) {
  const headers = { "x-qz-tarn-session-id": id };
  const mine = await send("GET", address("folders", [], { bucket: user }), headers).catch((failure) => {
    if (failure.status === 404 || failure.status === 400) return null;
    throw failure;
  });
  if (mine && textOf(child(mine, "FolderSummary"), "Writable") === "true") return;
  await send("GET", address("logout"), headers);
  throw new Error("This token belongs to another user.");
}

async function signOut() {
  if (uploading) throw new Error("Uploads are under way. Wait for them or cancel them, then sign out.");
  await carryOutDeletions();
  await ask("GET", "logout");
  endSession("You are signed out.");
}

// Places: "#/a/b", "#alice:/a/b", "#shared", "#links"

function placeOf(hash) {
  if (hash === "#shared" || hash === "#links") return { view: hash.slice(1) };
  const parts = /^#([^:/]*):?(\/.*)$/.exec(hash) ?? ["", "", "/"];
  try {
    const names = parts[2].split("/").filter(Boolean).map(decodeURIComponent);
    return { view: "folder", bucket: decodeURIComponent(parts[1]), names };
  } catch {
    return { view: "folder", bucket: "", names: [] };
  }
}

const hashOf = ({ bucket, names }) =>
  "#" + (bucket ? encodeURIComponent(bucket) + ":" : "") + encodedPath(names);

const here = () => placeOf(location.hash);

let shown = 0;
let sorting = { key: "name", down: false };
let current = null; // the folder that is shown, an entry

// @param arrived  the reader is led to the beginning; otherwise the focus stays
async function show(arrived = false) {
  if (!session) return;
  const number = ++shown;
  const place = here();
  const view = byId("view");
  view.setAttribute("aria-busy", "true");
  let content;
  try {
    const views = { folder: folderView, shared: sharedView, links: linksView };
    content = await views[place.view](place);
  } catch (failure) {
    if (failure instanceof SessionEnded) return;
    content = { title: "Not shown", entry: null, body: [make("p", {}, failure.message)] };
  }
  if (number !== shown) return; // the reader is somewhere else by now
  view.removeAttribute("aria-busy");
  current = content.entry ?? null;
  showTitle(content);
  const focused = document.activeElement?.dataset.key;
  view.replaceChildren(...content.body);
  if (arrived) byId("title").focus();
  else if (focused) focusOn(focused);
}

function showTitle({ title, crumbs = [] }) {
  document.title = `${title} – Tarn`;
  byId("title").replaceChildren(named(title));
  const items = crumbs.map(({ name, hash }) => make("li", {}, make("a", { href: hash }, named(name))));
  byId("crumbs").replaceChildren(make("ol", {}, ...items));
  byId("crumbs").hidden = crumbs.length === 0;
  byId("tools").hidden = !current;
  byId("upload").hidden = byId("new-folder").hidden = !current?.writable;
  for (const link of document.querySelectorAll("#app > header nav a")) {
    const isHere = link.hash === location.hash || (link.hash === "#/" && location.hash === "");
    isHere ? link.setAttribute("aria-current", "page") : link.removeAttribute("aria-current");
  }
}

function focusOn(key) {
  const controls = [...document.querySelectorAll("[data-key]")];
  (controls.find((each) => each.dataset.key === key) ?? byId("title")).focus();
}

async function folderView(place) {
  const reply = await ask("GET", "folders", place);
  const folder = entryOf(child(reply, "FolderSummary"), "folder", place.bucket, place.names);
  const under = (record, kind) =>
    entryOf(record, kind, place.bucket, [...place.names, textOf(record, "Name")]);
  const entries = [
    ...all(child(reply, "Folders"), "FolderSummary").map((record) => under(record, "folder")),
    ...all(child(reply, "Files"), "FileSummary").map((record) => under(record, "file")),
  ].filter((entry) => !deletions.has(keyOf(entry)));
  const isRoot = place.names.length === 0;
  return {
    title: isRoot ? (place.bucket || "My files") : folder.name,
    crumbs: isRoot ? [] : await crumbsOf(place),
    entry: folder,
    body: [entries.length ? table(entries) : make("p", {}, "This folder is empty.")],
  };
}

let shared = null; // what others share, as far as it is known

async function crumbsOf({ bucket, names }) {
  const above = (length) => ({ name: names[length - 1], hash: hashOf({ bucket, names: names.slice(0, length) }) });
  const lengths = names.map((_, index) => index + 1).slice(0, -1);
  if (!bucket) return [{ name: "My files", hash: "#/" }, ...lengths.map(above)];
  shared ??= await sharedEntries();
  const isReadable = (length) =>
    shared.some((root) => root.bucket === bucket && root.names.length <= length &&
      root.names.every((name, index) => name === names[index]));
  return [{ name: "Shared with me", hash: "#shared" }, ...lengths.filter(isReadable).map(above)];
}

async function sharedEntries() {
  const reply = await ask("GET", "sharedcontent");
  const entries = (list, kind) =>
    all(reply, list).map((record) => {
      const resource = child(record, "Resource");
      const names = textOf(resource, "Path").split("/").filter(Boolean);
      return entryOf(record, kind, textOf(resource, "Bucket"), names);
    });
  return [...entries("SharedFolder", "folder"), ...entries("SharedFile", "file")];
}

async function sharedView() {
  shared = await sharedEntries();
  const nothing = make("p", {}, "Nobody shares anything with you.");
  return { title: "Shared with me", body: [shared.length ? table(shared, true) : nothing] };
}

// Tables

const columns = {
  name: { title: "Name", order: (a, b) => a.name.localeCompare(b.name, undefined, { numeric: true }) },
  size: { title: "Size", order: (a, b) => a.size - b.size },
  date: { title: "Changed", order: (a, b) => a.modified - b.modified },
};

function heading(key) {
  const sorted = sorting.key === key;
  const sort = () => {
    sorting = { key, down: sorted && !sorting.down };
    return show();
  };
  const direction = sorting.down ? "descending" : "ascending";
  const control = button(columns[key].title, saying(sort), { "data-key": `sort ${key}` });
  return make("th", { scope: "col", "aria-sort": sorted ? direction : undefined }, control);
}

function table(entries, withOwner = false) {
  const order = (a, b) => {
    if (a.kind !== b.kind) return a.kind === "folder" ? -1 : 1;
    return columns[sorting.key].order(a, b) * (sorting.down ? -1 : 1);
  };
  const actions = make("th", { scope: "col" }, make("span", { class: "unseen" }, "Actions"));
  const head = make("tr", {}, ...Object.keys(columns).map(heading), actions);
  const rows = [...entries].sort(order).map((entry) => row(entry, withOwner));
  return make("table", { class: "entries" }, make("thead", {}, head), make("tbody", {}, ...rows));
}

function row(entry, withOwner) {
  const key = keyOf(entry);
  const name =
    entry.kind === "folder"
      ? make("a", { href: hashOf(entry), "data-key": key }, named(entry.name), "/")
      : button(named(entry.name), saying(() => download(entry)), { "data-key": key, class: "link", title: "Download" });
  const owner = withOwner ? [make("small", {}, "from ", named(entry.bucket))] : [];
  const more = button("⋯", () => showActions(entry), {
    "aria-label": `Actions for ${entry.name}`,
    "aria-haspopup": "dialog",
    "data-key": `${key} actions`,
    class: "more",
  });
  return make("tr", {},
    make("td", {}, name, ...owner, make("small", { class: "narrow" }, timeElement(entry.modified))),
    make("td", {}, entry.kind === "file" ? sizeText(entry.size) : ""),
    make("td", {}, timeElement(entry.modified)),
    make("td", {}, more));
}

// Dialogs

function openDialog(title, ...body) {
  const dialog = byId("dialog");
  if (!dialog.open) {
    dialog.dataset.opener = document.activeElement?.dataset.key ?? "";
    dialog.showModal();
  }
  byId("dialog-title").replaceChildren(title);
  byId("dialog-status").replaceChildren();
  byId("dialog-body").replaceChildren(...body);
  byId("dialog-body").querySelector("input, select, button, a")?.focus();
}

const closeDialog = () => byId("dialog").close();

const inDialog = (action) =>
  saying((event) => {
    event.preventDefault();
    byId("dialog-status").replaceChildren();
    return action(event);
  });

function field(label, control) {
  return make("label", {}, make("span", {}, label), control);
}

function showActions(entry) {
  const isRoot = entry.names.length === 0;
  const isFile = entry.kind === "file";
  const choice = (label, action, offered = true, attributes = {}) =>
    offered ? [make("li", {}, button(label, inDialog(action), attributes))] : [];
  const choices = make("ul", { class: "choices" },
    ...choice(isFile ? "Download" : "Download all as one archive", () => {
      closeDialog();
      return download(entry).catch(sayFailure);
    }),
    ...choice("Share with a user…", () => showSharing(entry), entry.writable),
    ...choice("Public link…", () => showLink(entry), entry.writable),
    ...choice("Versions…", () => showVersions(entry), isFile),
    ...choice("Rename or move…", () => showMove(entry), entry.writable && !isRoot),
    ...choice("Delete", () => remove(entry), entry.writable && !isRoot, { class: "danger" }));
  openDialog(named(entry.name), choices);
}

// Downloading

// A browser writes what a form brings to the disk as it comes, of any size. The question before it finds out what
// there is to say, because the reply to a form stays in a frame that nobody sees.
async function download(entry, version = {}) {
  await ask("GET", "filesystem", entry);
  const form = byId("download");
  const bucket = entry.bucket ? { bucket: entry.bucket } : {};
  form.action = address("download", entry.names, { ...version, ...bucket });
  form.elements.session.value = session.id;
  form.submit();
  form.elements.session.value = "";
  say(`${entry.name} is being downloaded.`);
}

function downloadRefused(event) {
  const sentence = event.target.contentDocument?.querySelector("code")?.textContent;
  if (sentence) say(sentence, true);
}

// Sharing

async function showSharing(entry) {
  const where = { path: pathText(entry.names), bucket: entry.bucket };
  const reply = await ask("GET", "permissions", null, where);
  const grants = all(reply, "Permission").map((grant) => {
    const user = textOf(child(grant, "Subject"), "SubjectName");
    const end = inDialog(async () => {
      await ask("DELETE", `permissions/${encodeURIComponent(textOf(grant, "PermissionId"))}`);
      await showSharing(entry);
    });
    const pending = textOf(grant, "Status") === "PENDING" ? " (not a user yet)" : "";
    return make("li", {}, make("span", {}, named(user), pending),
      button("Stop sharing", end, { "aria-label": `Stop sharing with ${user}` }));
  });
  const subject = make("input", { required: true, autocapitalize: "none", spellcheck: "false" });
  const share = inDialog(async () => {
    await ask("PUT", "permissions", null, { ...where, subject: subject.value, operation: "READ_ONLY" });
    await showSharing(entry);
  });
  openDialog(make("span", {}, "Share ", named(entry.name)),
    make("form", { submit: share }, field("User who may read it", subject), make("button", { class: "primary" }, "Share")),
    make("p", {}, grants.length ? "May read it:" : "Nobody else may read it."),
    make("ul", { class: "list" }, ...grants));
}

// Public links

const day = 24 * 60 * 60 * 1000;
const lives = [[1, "After a day"], [7, "After 7 days"], [30, "After 30 days"], [0, "Never"]];

async function publicLinks() {
  const reply = await ask("GET", "public/links");
  return all(reply, "PublicLink").map((link) => {
    const resource = child(link, "Resource");
    return {
      id: textOf(link, "PublicLinkId"),
      url: textOf(link, "PublicAccessUrl"),
      expires: numberOf(link, "Expires"),
      kind: textOf(link, "Type") === "FOLDER" ? "folder" : "file",
      names: textOf(resource, "Path").split("/").filter(Boolean),
      bucket: "",
    };
  });
}

const endOf = (link) => (link.expires ? ["Ends ", timeElement(link.expires)] : ["Does not end"]);

const revoke = (link) => ask("DELETE", `public/links/${encodeURIComponent(link.id)}`);

async function copy(link, input) {
  try {
    await navigator.clipboard.writeText(link.url);
    say("The link is copied.");
  } catch {
    // Browsers hand out the clipboard over TLS only.
    input.select();
    say("The link is selected, for you to copy it.");
  }
}

function linkItem(link, end, name = "link") {
  const input = make("input", { readonly: true, value: link.url, "aria-label": `Address of the ${name}`, class: "url" });
  return make("li", {}, input, make("span", {}, ...endOf(link)),
    button("Copy", () => copy(link, input), { "aria-label": `Copy the ${name}` }),
    button("Revoke", end, { "aria-label": `Revoke the ${name}` }));
}

async function showLink(entry) {
  const again = () => showLink(entry);
  const links = (await publicLinks()).filter((link) => pathText(link.names) === pathText(entry.names));
  const life = make("select", {},
    ...lives.map(([days, label]) => make("option", { value: days, selected: days === 7 }, label)));
  const create = inDialog(async () => {
    const expires = life.value === "0" ? {} : { expires: Date.now() + Number(life.value) * day };
    await ask("PUT", "public/links", entry, expires);
    await again();
    say("The link is made.");
  });
  openDialog(make("span", {}, "Public link to ", named(entry.name)),
    make("form", { submit: create }, field("The link ends", life), make("button", { class: "primary" }, "Make a link")),
    make("p", {}, "Whoever has a link can open it, without signing in."),
    make("ul", { class: "list" }, ...links.map((link) => linkItem(link, inDialog(async () => {
      await revoke(link);
      await again();
      say("The link is revoked.");
    })))));
}

async function linksView() {
  const links = await publicLinks();
  const items = links.map((link) => {
    const folder = link.kind === "folder" ? link : { bucket: "", names: link.names.slice(0, -1) };
    const end = saying(async () => {
      await revoke(link);
      say("The link is revoked.");
      await show(true);
    });
    const path = pathText(link.names);
    const name = make("a", { href: hashOf(folder), "data-key": `link ${link.id}` }, named(path));
    const item = linkItem(link, end, `link to ${path}`);
    item.prepend(name);
    return item;
  });
  const nothing = make("p", {}, "There are no public links to your files.");
  return { title: "My links", body: [items.length ? make("ul", { class: "list" }, ...items) : nothing] };
}

// Versions

async function showVersions(entry) {
  const reply = await ask("GET", "versions/files", entry);
  const items = all(reply, "VersionSummary").map((version) => {
    const label = textOf(version, "VersionLabel");
    const choice = { versionId: textOf(version, "VersionId"), versionLabel: label };
    const restore = inDialog(async () => {
      await carryOutDeletions();
      await ask("PUT", "versions/files", entry, { ...choice, createNewVersion: true });
      await showVersions(entry);
      say(`Version ${label} is restored, as the newest one.`);
      await show();
    });
    const name = (text) => ({ "aria-label": `${text} version ${label}` });
    return make("li", {}, make("span", {}, `Version ${label}, `, timeElement(numberOf(version, "Created"))),
      button("Download", inDialog(() => download(entry, choice)), name("Download")),
      ...(entry.writable ? [button("Restore", restore, name("Restore"))] : []));
  });
  openDialog(make("span", {}, "Versions of ", named(entry.name)), make("ul", { class: "list" }, ...items));
}

// Changes of the tree

function showMove(entry) {
  const target = make("input", { required: true, value: pathText(entry.names), spellcheck: "false" });
  const move = inDialog(async () => {
    await carryOutDeletions();
    await ask("PUT", "filesystem", entry, { targetPath: target.value, targetBucket: "", moveTargetOverwrite: false });
    closeDialog();
    say(`${entry.name} is now ${target.value}.`);
    const names = target.value.split("/").filter(Boolean);
    if (keyOf(entry) === keyOf(here())) location.hash = hashOf({ bucket: "", names });
    else await show();
  });
  openDialog(make("span", {}, "Rename or move ", named(entry.name)),
    make("form", { submit: move }, field("New path", target), make("button", { class: "primary" }, "Move")));
}

function showNewFolder() {
  const name = make("input", { required: true });
  const create = inDialog(async () => {
    await carryOutDeletions();
    const folder = { bucket: current.bucket, names: [...current.names, name.value] };
    await ask("PUT", "folders", folder);
    closeDialog();
    say(`The folder ${name.value} is made.`);
    await show();
    focusOn(keyOf(folder));
  });
  openDialog("New folder",
    make("form", { submit: create }, field("Name", name), make("button", { class: "primary" }, "Make folder")));
}

// Deleting: for a while only in this page, so that it can be undone with versions, grants and links

const deletions = new Map(); // by the key of the item

function remove(entry) {
  const key = keyOf(entry);
  if (deletions.has(key)) return;
  const seconds = 20;
  const undoButton = button("Undo", () => deletion.undo());
  const line = make("p", { class: "notice" }, make("span", {}, named(entry.name), " is deleted."), undoButton);
  const timer = setTimeout(() => deletion.carryOut().catch(sayFailure), seconds * 1000);
  const deletion = {
    entry,
    forget() {
      clearTimeout(timer);
      deletions.delete(key);
      if (line.contains(document.activeElement)) byId("title").focus();
      line.remove();
    },
    undo() {
      deletion.forget();
      say(`${entry.name} is back.`);
      show().then(() => focusOn(`${key} actions`));
    },
    async carryOut() {
      deletion.forget();
      const [route, query] = entry.kind === "file" ? ["files", {}] : ["folders", { forceRecursive: true }];
      try {
        const attributes = await ask("GET", "filesystem", entry);
        if (textOf(child(attributes, "FileAttributes"), "Watermark") !== entry.watermark)
          throw new Error(`${entry.name} has changed meanwhile, and stays.`);
        await ask("DELETE", route, entry, query);
      } finally {
        if (session) show();
      }
    },
  };
  deletions.set(key, deletion);
  byId("undo").append(line);
  byId("dialog").dataset.opener = "";
  closeDialog();
  if (keyOf(here()) === key) location.hash = hashOf({ bucket: entry.bucket, names: entry.names.slice(0, -1) });
  else show().then(() => undoButton.focus());
}

// Before any other change: what waits to be deleted must not take along what is made in its place.
async function carryOutDeletions() {
  for (const deletion of [...deletions.values()]) await deletion.carryOut().catch(sayFailure);
}

function carryOutDeletionsAndLeave() {
  for (const { entry } of deletions.values()) {
    const query = { ...(entry.kind === "folder" ? { forceRecursive: true } : {}), bucket: entry.bucket };
    const url = address(entry.kind === "file" ? "files" : "folders", entry.names, query);
    fetch(url, { method: "DELETE", keepalive: true, headers: { "x-qz-tarn-session-id": session.id } });
  }
}

// Uploading

const mostUploads = 3; // at a time
const uploads = new Set(); // those that are seen
const waiting = [];
let uploading = 0;
let stored = 0;

function queueUpload(file, folder) {
  const place = { bucket: folder.bucket, names: [...folder.names, file.name] };
  const bar = make("progress", { max: "1", value: "0", "aria-label": `Upload of ${file.name}` });
  const controls = make("span");
  const line = make("li", {}, named(file.name), bar, controls);
  const upload = { file, place, bar, controls, line, stopper: new AbortController() };
  controls.append(button("Cancel", () => cancelUpload(upload), { "aria-label": `Cancel the upload of ${file.name}` }));
  byId("transfers").querySelector("ul").append(line);
  byId("transfers").hidden = false;
  uploads.add(upload);
  waiting.push(upload);
}

function forgetUpload(upload) {
  if (upload.line.contains(document.activeElement)) byId("upload").focus();
  upload.line.remove();
  uploads.delete(upload);
  byId("transfers").hidden = uploads.size === 0;
}

function cancelUpload(upload) {
  const index = waiting.indexOf(upload);
  if (index >= 0) waiting.splice(index, 1);
  upload.stopper.abort();
  forgetUpload(upload);
}

function startUploads() {
  while (uploading < mostUploads && waiting.length) runUpload(waiting.shift());
}

async function runUpload(upload) {
  ++uploading;
  const { file, place, bar, stopper } = upload;
  const progress = (event) => {
    if (event.lengthComputable && event.total) bar.value = event.loaded / event.total;
  };
  try {
    const query = { createMode: "CREATE_OR_UPDATE", createNewVersion: true };
    await ask("PUT", "files", place, query, { body: file, progress, signal: stopper.signal });
    ++stored;
    forgetUpload(upload);
  } catch (failure) {
    if (failure.name !== "AbortError") showFailedUpload(upload, failure);
  }
  --uploading;
  if (uploading === 0 && waiting.length === 0) tellStored();
  else startUploads();
}

function showFailedUpload(upload, failure) {
  const text = failure instanceof SessionEnded ? "Your session has ended." : failure.message;
  const again = () => {
    forgetUpload(upload);
    queueUpload(upload.file, { bucket: upload.place.bucket, names: upload.place.names.slice(0, -1) });
    startUploads();
  };
  const name = upload.file.name;
  upload.bar.remove();
  upload.controls.replaceChildren(make("span", { role: "alert" }, text), " ",
    button("Try again", again, { "aria-label": `Try to upload ${name} again` }), " ",
    button("Dismiss", () => forgetUpload(upload), { "aria-label": `Dismiss ${name}` }));
}

function tellStored() {
  if (stored) say(stored === 1 ? "1 file is stored." : `${stored} files are stored.`);
  stored = 0;
  if (session) show();
}

async function uploadFiles(files, folder) {
  await carryOutDeletions();
  for (const file of files) queueUpload(file, folder);
  startUploads();
}

const entriesIn = (reader) => new Promise((resolve, reject) => reader.readEntries(resolve, reject));
const fileOf = (dropped) => new Promise((resolve, reject) => dropped.file(resolve, reject));

// A file, or a folder with all in it. A folder that is there already takes what comes.
async function uploadDropped(dropped, folder) {
  if (dropped.isFile) return uploadFiles([await fileOf(dropped)], folder);
  const made = { bucket: folder.bucket, names: [...folder.names, dropped.name] };
  await ask("PUT", "folders", made).catch((failure) => {
    if (failure.status !== 409) throw failure;
  });
  const reader = dropped.createReader();
  // A reader gives a hundred at a time.
  for (let batch = await entriesIn(reader); batch.length; batch = await entriesIn(reader))
    for (const each of batch) await uploadDropped(each, made);
  await show();
}

async function drop(event) {
  event.preventDefault();
  byId("place").classList.remove("dropping");
  const folder = current;
  if (!folder?.writable) return say("Nothing can be stored here.", true);
  // The list is empty once this function has waited for anything.
  const items = [...event.dataTransfer.items].map((item) => item.webkitGetAsEntry?.()).filter(Boolean);
  const files = [...event.dataTransfer.files];
  await carryOutDeletions();
  if (items.length === 0) return uploadFiles(files, folder);
  for (const item of items) await uploadDropped(item, folder);
}

// The beginning

byId("sign-in-form").addEventListener("submit", signIn);
byId("sign-out").addEventListener("click", saying(signOut));
byId("upload").addEventListener("click", () => byId("upload-files").click());
byId("upload-files").addEventListener("change", saying(async ({ target }) => {
  const files = [...target.files];
  target.value = ""; // so that the same can be chosen again
  await uploadFiles(files, current);
}));
byId("new-folder").addEventListener("click", showNewFolder);
byId("folder-actions").addEventListener("click", () => showActions(current));
byId("dialog").addEventListener("close", ({ target }) => {
  if (target.dataset.opener) focusOn(target.dataset.opener);
});
byId("place").addEventListener("dragover", (event) => {
  event.preventDefault();
  byId("place").classList.toggle("dropping", Boolean(current?.writable));
});
byId("place").addEventListener("dragleave", () => byId("place").classList.remove("dropping"));
byId("place").addEventListener("drop", saying(drop));
document.querySelector("iframe").addEventListener("load", downloadRefused);
addEventListener("hashchange", () => show(true));
addEventListener("pagehide", carryOutDeletionsAndLeave);
addEventListener("beforeunload", (event) => {
  if (uploading) event.preventDefault();
});
if (session) showApp();
else showSignIn();
