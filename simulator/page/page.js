"use strict";
// The simulated camera's page: every resource to read and change, and the camera's settings, drawn. The state
// and the journal come from /camera/log, everything else from the interface that all clients use.

let authorization = "";  // of the account that signs in or is signed in
let journal = {last: 0};  // what the last poll was told
let resources = [];
let seen = "";           // when a poll was answered last, in words
let moves = 0;           // of the sliders

const $ = (id) => document.getElementById(id);

function element(tag, properties, ...children) {
  const made = Object.assign(document.createElement(tag), properties);
  made.append(...children);
  return made;
}

// The answer and its content; nothing when there is no answer. The body's type becomes the Content-Type.
const ask = (method, url, body) =>
  fetch(url, {method, body, headers: {Authorization: authorization}, cache: "no-store", credentials: "omit"})
    .then(async (answer) => [answer, await answer.blob()]).catch(() => []);

// Signing in and out. The account stays signed in when the page is loaded again.

async function sign_in(user, credentials) {
  authorization = credentials;
  const [answer] = await ask("GET", "/PSIA/System/deviceInfo");  // the service knows who may sign in
  if (answer?.status === 401) return sign_out("User or password is wrong.");
  sessionStorage.account = JSON.stringify([user, credentials]);
  $("user-name").textContent = user;
  await poll();
  $("resource").focus();
}

function sign_out(note) {
  authorization = "";
  sessionStorage.removeItem("account");
  document.body.className = "";
  $("password").value = "";
  $("sign-in-note").textContent = note;
  $(note ? "password" : "user").focus();
}

$("sign-in").onsubmit = (event) => {
  event.preventDefault();
  const account = new TextEncoder().encode(`${$("user").value}:${$("password").value}`);
  sign_in($("user").value, "Basic " + btoa(String.fromCharCode(...account)));
};
$("sign-out").onclick = () => sign_out("");

// The state and the newest hundred entries of the journal, once a second.

async function poll() {
  const asked_by = authorization;
  if (!asked_by) return;
  const [answer, content] = await ask("GET", `/camera/log?since=${Math.max(0, journal.last - 100)}`);
  if (authorization !== asked_by) return;
  if (answer?.status === 401) return sign_out("User or password is wrong.");
  const problem = answer ? `The camera answers ${answer.status}.` : "No answer.";
  if (!answer?.ok) return show_state("no answer", `${problem} ${seen}`);
  const before = journal;
  const {run, last, entries, now} = journal = JSON.parse(await content.text());
  seen = `It answered last at ${new Date().toTimeString().slice(0, 8)}.`;
  show_state(now.up ? "running" : "restarting", now.up ? "" : "The camera restarts");
  draw(now);
  const changed = run !== before.run || last !== before.last;  // what a person has opened stays open
  if (changed) $("log").replaceChildren(...entries.map(log_item).reverse());
  document.body.className = "signed-in";
}

// `words` are the state's; `outage` tells why there is no picture, and is empty when there is one.
function show_state(words, outage) {
  if ($("state").textContent !== words) $("state").textContent = words;  // a screen reader reads what is set
  $("state").className = outage ? "bad" : "good";
  $("no-picture").textContent = $("sign-in-note").textContent = outage;
}

// The settings, drawn.

const kSizes = ["704×480", "704×240", "352×240", "144×112", "1280×720", "1920×1080"];  // by the stored code
const kSizesOf4To3 = [...kSizes.slice(0, 4), "1280×1024", "2040×1536"];
const kQualities = ["best", "good", "medium", "low", "lowest"].map((quality) => `variable, ${quality}`);
const kSounds = [["G.711", "µ-law"], ["G.711", "A-law"], ["G.726", "24 kbit/s"], ["G.726", "32 kbit/s"]];
const kRights = ["do everything", "change clock, media and events", "read", "read"];

const rows = (table) => journal.now.tables[table] ?? [];
const row = (table, key) => rows(table).find((found) => Object.values(found)[0] === key) ?? {};

// The cells of the first row and of the first column are headings.
function draw_card(id, title, lines, heads = [""]) {
  const line = (tag, [name, ...cells]) =>
    element("tr", {}, element("th", {}, name), ...cells.map((cell) => element(tag, {}, cell)));
  $(id).replaceChildren(element("h2", {}, title),
    element("table", {}, line("th", heads), ...lines.map((cells) => line("td", cells))));
}

function draw(now) {
  const [network = {}] = rows("Network"), [system = {}] = rows("System");
  const clock = now.clock.replace("T", " "), dynamic = network.ConnectionType === "1";
  const name = network.DDNSHostname || "Simulated camera";
  document.title = $("name").textContent = $("osd-name").textContent = name;
  $("model").textContent = `${system.ModelName ?? ""} · firmware ${system.ModelID}.${system.Version}`;
  $("osd-clock").textContent = clock;
  $("misbehaviour").textContent = now.answers.length ? `The daemons answer ${now.answers.join(" ")}.` : "";
  draw_media(row("VideoSource", "0"), row("Audio", "0"));
  draw_card("network", "Network and clock", [
    ["Address", `${now.address.replace(" ", " / ") || "none"}, ${dynamic ? "dynamic" : "static"}`],
    ["Gateway", dynamic ? "as leased" : network.Gateway],
    ["Name servers", now.nameServers.join(", ") || "none"],
    ["Clock", `${clock}, ${network.DateTimeSync === "2" ? "by NTP" : "set by hand"}`],
    ["Zone", now.zone + (now.zone === network.TimeZone ? "" : `; ${network.TimeZone} from the next boot on`)],
    ["NTP server", `${network.NTPServer}, every ${network.NTPInterval} min`],
    ["Up for", now.up ? `${now.uptime} s` : "down"],
    ["RTSP port", network.RTSPPort],
    ["Video", now.videoPort ? `rtsp://${location.hostname}:${now.videoPort}/Master-0 and /Slave-0`
      : "only with scripts/run --video"],
  ]);
  draw_alarm(row("Event", "0"), now.relays);
  const users = rows("User").map((user) => [user.UserID, kRights[user.Level] ?? "nothing"]);
  draw_card("accounts", "Accounts", users, ["Name", "May"]);
}

function draw_media(source, audio) {
  const levels = {brightness: source.Brightness, contrast: source.Contrast, hue: source.Hue};
  for (const [name, level] of Object.entries(levels)) {
    const slider = $("levels").elements[name];
    // A slider that was moved stays where it is until the form is reset.
    slider.defaultValue = slider.previousElementSibling.defaultValue = level;
    $("scene").style.setProperty(`--${name}`, level);
  }
  const off = (stored) => stored > 0 ? "" : " (off)";
  const sizes = source.CaptureMode === "1" ? kSizesOf4To3 : kSizes;
  const streams = rows("VideoEncoder").map((stream) => [
    (stream.VideoEncoderID === "0" ? "Master" : "Slave") + off(stream.Enable),
    sizes[stream.Resolution] ?? sizes[4],
    stream.Codec === "0" ? "MJPEG" : "H.264",
    `${stream.Framerate}/s`,
    stream.QualityType === "0" ? `${stream.Bitrate} kbit/s` : kQualities[stream.Quality] ?? kQualities[2],
  ]);
  const [codec, variant] = kSounds[audio.Codec] ?? kSounds[0];
  streams.push(["Audio" + off(audio.Enable), "", codec, "", variant]);
  draw_card("streams", "Streams", streams, ["Stream", "Size", "Codec", "Rate", "Quality"]);
  const viewers = rows("ClientList").map(({StreamName: stream, Address: address, Port: port}) =>
    [stream.replace("-0", ""), `${address}:${port}`]);
  draw_card("viewers", "Connected viewers", viewers, viewers.length > 0 ? ["Stream", "Address"] : ["Nobody"]);
}

function draw_alarm(event, closed_relays) {
  const {StartTime: from, EndTime: to} = event;  // hours times 100 plus minutes
  const share = (time) => `${(Math.floor(time / 100) + time % 100 / 60) / 24 * 100}%`;
  const clock = (time) => String(time).padStart(3, "0").replace(/..$/, ":$&");
  const never = to - from > 0 ? "" : ": never, as it ends before it starts";
  const days = ["Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"].map((day, bit) =>
    [day, element("i", {className: event.Week >> bit & 1 ? "armed" : ""})]);
  const relay = row("SensorRelay", event.RelayID), closed = closed_relays.includes(relay.Alias);
  const ftp = row("FTPServer", event.FTPServerID), mail = row("SMTPServer", event.SMTPServerID);
  $("alarm").style.cssText = `--from: ${share(from)}; --to: ${share(to)}`;
  draw_card("alarm", "Alarm", [
    ...days,
    ["Armed", `${clock(from)} to ${clock(to)}${never}`],
    ["Input", row("SensorRelay", "0").Alias ?? "none"],
    ["At most every", `${event.IgnoreInterval} s`],
    ["Relay", relay.Alias ? `${relay.Alias} for ${relay.Interval} s${closed ? ", closed now" : ""}` : "–"],
    ["Upload", ftp.Alias ? `${ftp.Alias}, ftp://${ftp.Address}:${ftp.Port}${ftp.Path}` : "–"],
    ["Mail", mail.Alias ? `${mail.Alias}, ${mail.Address}:${mail.Port}` : "–"],
  ], ["", "0 6 12 18 24"]);
}

// The journal, and requests.

const outcome = ({status, words, milliseconds}) =>
  (status ? ` · status ${status} ${words}` : "") + ` · ${milliseconds} ms`;

// The rows and messages of an entry, each with a tag.
function effects({method, changes, messages}) {
  const tags = {command: "message", refused: "refused"};  // by the first word of a message
  const line = (tag, text) => element("li", {}, element("b", {}, tag), text);
  return [...changes.map((text) => line(method ? "row" : "", text)),
    ...messages.map((text) => line(tags[text.split(/\W/)[0]] ?? "", text.replace(/^refused: /, "")))];
}

function log_item(entry) {
  const words = entry.text ?? `${entry.user}  ${entry.method} ${entry.url} · ${entry.http}${outcome(entry)}`;
  const printed = element("details", {hidden: entry.printed.length === 0},
    element("summary", {}, "printed document"), element("pre", {}, entry.printed.join("\n")));
  return element("li", {},
    element("time", {}, entry.time), ` ${words}`, element("ul", {}, ...effects(entry)), printed);
}

const kNoEntry = {milliseconds: "?", changes: [], messages: [], printed: []};

// Sends a request. Gives words about it, the content of the answer and the journal's entry.
async function send(method, url, body) {
  const {last} = journal;
  const [answer, content] = await ask(method, url, body);
  if (!answer) return {words: "The camera does not answer.", content: new Blob(), entry: kNoEntry};
  await poll();
  const entry = journal.entries.findLast((found) =>
    found.id > last && found.method === method && answer.url.endsWith(found.url)) ?? kNoEntry;
  const words = `${answer.status} ${answer.statusText}${outcome(entry)}`;
  const good = answer.ok && !(entry.status > 1), stored = !good && entry.changes.length > 0;
  const printed = answer.status === 500 && entry.printed.length > 0;  // the content is the web server's page
  return {words, content, entry, good, stored, printed};
}

$("sensor").onclick = async () => {
  const {good, words, content} = await send("PUT", "/camera/sensor");
  $("sensor-note").textContent = good ? "What follows is listed below." : await content.text() || words;
};

$("levels").oninput = ({target}) => target.previousElementSibling.value = target.value;

// The picture is row 0; the id 1 that the document shows is another row.
$("levels").onchange = async ({currentTarget: form}) => {
  const move = ++moves;
  const levels = [...new FormData(form)].map(([name, level]) => `<${name}Level>${level}</${name}Level>`);
  const channel = ["<VideoInputChannel><id>0</id>", ...levels, "</VideoInputChannel>"];
  const body = new Blob(channel, {type: "application/xml"});
  const {words, good, stored} = await send("PUT", "/PSIA/System/Video/inputs/channels/1", body);
  $("levels-note").textContent = (good ? "Set: " : stored ? "Stored, but: " : "Not changed: ") + words;
  $("levels-note").className = good ? "hint" : "bad";
  if (move === moves) form.reset();
};

const kStored = "The rows below changed all the same: the service stores first, and then tells the daemons.";
const kPrinted = "The document below went to the service's standard output. Over FastCGI a client receives " +
  "nothing of it, and the web server makes an error of that. As a plain CGI program the service delivers it.";

$("request").onsubmit = async (event) => {
  event.preventDefault();
  const {type = "application/xml"} = chosen();
  const body = $("body").hidden ? undefined : new Blob([$("file").files[0] ?? $("body").value], {type});
  $("verdict").textContent = "Waiting for the answer";
  for (const id of ["why", "answer", "effects"]) $(id).replaceChildren();
  const {words, good, stored, printed, entry, content} = await send($("method").value, $("url").value, body);
  $("verdict").textContent = words;
  $("verdict").className = good ? "good" : "bad";
  $("why").textContent = stored ? kStored : printed ? kPrinted : "";
  $("answer").textContent = printed ? entry.printed.slice(1).join("\n") : indented(await content.text());
  $("effects").replaceChildren(...effects(entry));
  if (content.type.includes("octet-stream")) {
    const link = {href: URL.createObjectURL(content), download: "psia_config.dat"};
    $("answer").replaceChildren(element("a", link, `${content.size} bytes, to be saved`));
  }
};

// A tag a line, two spaces deeper in each element; an element that holds only text stays on one line.
function indented(text) {
  let depth = 0;
  return text.trim().split(/(?<=>)\s*(?=<)/).map((line) => {
    if (line.startsWith("</")) depth = Math.max(0, depth - 1);
    const shown = "  ".repeat(depth) + line;
    if (/^<\w[^<]*$/.test(line) && !line.endsWith("/>")) depth++;
    return shown;
  }).join("\n");
}

// The resources to choose from.

const kRoots = ["", "/System", "/System/Network", "/System/Audio", "/System/Video", "/Security",
  "/Security/AAA", "/Streaming", "/Custom/Event"];
const kMay = ["Only administrators (level 0) may do this.", "Levels 0 and 1 may do this."];
const chosen = () => resources[$("resource").value];

async function load_resources() {
  resources = await (await fetch("resources.json")).json();
  const documents = kRoots.flatMap((root) => [`/PSIA${root}/index`, `/PSIA${root}/description`]);
  resources.push(...["/PSIA/indexr", ...documents].map((url) =>
    ({group: "Index and description", title: url, url, methods: {GET: ""}})));
  const groups = Object.groupBy(resources, (resource) => resource.group);
  $("resource").append(...Object.entries(groups).map(([label, members]) => element("optgroup", {label},
    ...members.map((resource) => new Option(resource.title, resources.indexOf(resource))))));
  $("resource").onchange();
}

$("resource").onchange = () => {
  const {url, methods} = chosen();
  $("url").value = url;
  $("method").replaceChildren(...Object.keys(methods).map((method) => new Option(method)));
  $("method").onchange();
};

$("method").onchange = () => {
  const {url, methods, level, read_level} = chosen(), method = $("method").value, reads = method === "GET";
  const printed = reads && url.startsWith("/PSIA/Custom/Event");
  $("body").hidden = $("file-row").hidden = !["PUT", "POST"].includes(method);
  $("body").value = indented(methods[method]);
  $("file").value = "";
  $("may").textContent = (kMay[reads ? read_level : level] ?? "Every account of level 0 to 3 may do this.") +
    (printed ? " The answer goes to the service's standard output." : "");
};

const watch = () => poll().finally(() => setTimeout(watch, 1000));
watch();
load_resources();
if (sessionStorage.account) sign_in(...JSON.parse(sessionStorage.account));
