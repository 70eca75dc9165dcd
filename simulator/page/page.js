"use strict";
// The simulated camera's page: every resource to read and change, and the camera's settings, drawn. The state and the
// journal come from /camera/log, everything else from the interface that all clients use.

const $ = (id) => document.getElementById(id);
const kKept = "account";  // in sessionStorage: the account stays signed in when the page is loaded again
let authorization = "";   // of the account that is signed in
let run = null;           // which run of the simulator the journal is of
let last = 0;             // id of the newest journal entry
let journal = [];
let tables = {};
let resources = [];
let levels_touched = 0;   // when a slider was moved last
let looking = null;       // the poll that is under way
let seen_at = "";         // machine's time of the last poll that was answered

function element(tag, properties, ...children) {
  const made = Object.assign(document.createElement(tag), properties);
  made.append(...children);
  return made;
}

const ask = (url, options) =>
  fetch(url, {cache: "no-store", credentials: "omit", ...options, headers: {Authorization: authorization, ...options?.headers}});

// Signing in and out.

async function sign_in(user, credentials) {
  authorization = credentials;
  const answer = await ask("/PSIA/System/deviceInfo").catch(() => null);
  // A camera that restarts cannot check the account; its page is shown all the same.
  if (answer?.ok || answer?.status === 503) {
    sessionStorage.setItem(kKept, JSON.stringify([user, credentials]));
    $("user-name").textContent = user;
    show_signed_in(true);
    await load_resources();
    $("resource").focus();
    return look();
  }
  sign_out(!answer ? "The camera does not answer." : answer.status === 401 ? "User or password is wrong."
    : `The camera answers ${answer.status}.`);
}

$("sign-in").onsubmit = (event) => {
  event.preventDefault();
  const account = new TextEncoder().encode(`${$("user").value}:${$("password").value}`);
  sign_in($("user").value, "Basic " + btoa(String.fromCharCode(...account)));
};

function show_signed_in(signed_in) {
  $("sign-in").hidden = signed_in;
  for (const shown of [document.querySelector("main"), $("state"), $("who")]) shown.hidden = !signed_in;
}

function sign_out(note) {
  authorization = "";
  sessionStorage.removeItem(kKept);
  $("password").value = "";
  $("sign-in-note").textContent = note;
  show_signed_in(false);
  $(note ? "password" : "user").focus();
}
$("sign-out").onclick = () => sign_out("");

// The state and the journal, once a second. One poll at a time, so that no entry is taken twice.

function look() {
  looking ??= poll().finally(() => looking = null);
  return looking;
}
setInterval(look, 1000);

async function poll() {
  const asked_by = authorization;
  if (!asked_by) return;
  const answer = await ask(`/camera/log?since=${last}`).catch(() => null);
  if (authorization !== asked_by) return;
  if (answer?.status === 401) return sign_out("The camera does not take this account.");
  const told = answer?.ok ? await answer.json().catch(() => null) : null;
  if (!told) return show_state("no answer", `No answer. Everything shown is from ${seen_at || "an earlier time"}.`);
  if (told.run !== run) {
    const again = run !== null;
    [run, last, journal] = [told.run, 0, []];
    if (again) return poll();
  }
  last = told.last;
  journal = journal.concat(told.entries).slice(-200);
  tables = told.now.tables;
  seen_at = new Date().toTimeString().slice(0, 8);
  show_state(told.now.up ? "running" : "restarting", told.now.up ? "" : "The camera restarts");
  draw(told.now);
  if (told.entries.length > 0) draw_journal();
}

// `words` are the state's; `outage` tells why there is no picture, and is empty when there is one.
function show_state(words, outage) {
  if ($("state").textContent !== words) $("state").textContent = words;
  $("state").classList.toggle("down", outage !== "");
  $("no-picture").textContent = outage;
  $("no-picture").hidden = outage === "";
}

const row = (table, column, id) => (tables[table] ?? []).find((found) => !column || found[column] === id) ?? {};

function fill_table(id, heads, rows, none) {
  const cells = (kind, texts) => element("tr", {}, ...texts.map((text) => 
    element(kind, {textContent: text, ...(kind === "th" && {scope: "col"})})));
  $(id).replaceChildren(...(rows.length === 0 ? [element("caption", {className: "hint", textContent: none})]
    : [cells("th", heads), ...rows.map((texts) => cells("td", texts))]));
}

function fill_list(id, pairs) {
  $(id).replaceChildren(...pairs.flatMap(([name, text]) =>
    [element("dt", {textContent: name}), element("dd", {textContent: text})]));
}

const kBest = ["best", "good", "medium", "low", "lowest"];

// The stored code; the larger sizes depend on whether pictures of 4:3 are taken.
function stream_size(code) {
  const small = {0: "704×480", 1: "704×240", 2: "352×240", 3: "144×112"}[code];
  if (small) return small;
  const large = code === "5";
  if (row("VideoSource").CaptureMode === "1") return large ? "2040×1536" : "1280×1024";
  return large ? "1920×1080" : "1280×720";
}

function draw(now) {
  const network = row("Network"), source = row("VideoSource", "VideoSourceID", "0"), audio = row("Audio", "AudioID", "0");
  $("name").textContent = $("osd-name").textContent = network.DDNSHostname || "Simulated camera";
  document.title = `${$("name").textContent} · simulated camera`;
  $("misbehaviour").textContent = now.answers.length > 0 ? `The daemons answer ${now.answers.join(" ")}.` : "";
  $("model").textContent = `${row("System").ModelName ?? ""} · firmware ${row("System").ModelID}.${row("System").Version}`;
  $("osd-clock").textContent = now.clock.replace("T", " ");
  const gain = (level) => (0.4 + level * 0.012).toFixed(2);  // 50 leaves the picture as it is
  $("scene").style.filter = `brightness(${gain(source.Brightness)}) contrast(${gain(source.Contrast)}) ` +
    `hue-rotate(${(source.Hue - 50) * 3.6}deg)`;
  if (Date.now() - levels_touched > 2000) {
    for (const [name, value] of [["brightness", source.Brightness], ["contrast", source.Contrast], ["hue", source.Hue]]) {
      const slider = $("levels").elements[name];
      slider.value = slider.nextElementSibling.value = value;
    }
  }
  fill_table("streams", ["Stream", "Size", "Codec", "Rate", "Quality"], (tables.VideoEncoder ?? []).map((stream) => [
    (stream.VideoEncoderID === "0" ? "Master" : "Slave") + (stream.Enable === "1" ? "" : " (off)"), stream_size(stream.Resolution),
    stream.Codec === "0" ? "MJPEG" : "H.264", `${stream.Framerate}/s`,
    stream.QualityType === "0" ? `${stream.Bitrate} kbit/s` : `variable, ${kBest[stream.Quality] ?? "medium"}`]), "No streams");
  fill_list("audio", [["Audio", audio.Enable && audio.Enable !== "0" ? `on, ${["G.711 µ-law", "G.711 A-law", "G.726, 24 kbit/s",
    "G.726, 32 kbit/s"][audio.Codec] ?? "G.711"}` : "off"], ["RTSP port", network.RTSPPort]]);
  const [address, mask] = now.address.split(" ");
  fill_list("network", [
    ["Address", `${address || "none"}${mask ? " / " + mask : ""}, ${network.ConnectionType === "1" ? "dynamic" : "static"}`],
    ["Gateway", network.ConnectionType === "1" ? "as leased" : network.Gateway], ["Name servers", now.nameServers.join(", ") || "none"],
    ["Clock", `${now.clock.replace("T", " ")}, ${network.DateTimeSync === "2" ? "by NTP" : "set by hand"}`],
    ["Zone", now.zone === network.TimeZone ? now.zone : `${now.zone}; ${network.TimeZone} from the next boot on`],
    ["NTP server", `${network.NTPServer}, every ${network.NTPInterval} min`], ["Up for", now.up ? `${now.uptime} s` : "down"]]);
  draw_schedule(row("Event", "Trigger", "0"));
  draw_alarm(row("Event", "Trigger", "0"), now.relays);
  $("stream-urls").textContent = now.videoPort === 0 ? "Nobody sends video: scripts/run --video does." :
    `rtsp://${location.hostname}:${now.videoPort}/Master-0 and /Slave-0`;
  fill_table("accounts", ["Name", "May"], (tables.User ?? []).map((user) => [user.UserID,
    {0: "do everything", 1: "change clock, media and events", 2: "read", 3: "read"}[user.Level] ?? "nothing"]), "No accounts");
  fill_table("viewers", ["Stream", "Address"], (tables.ClientList ?? []).map((viewer) =>
    [viewer.StreamName.replace("-0", ""), `${viewer.Address}:${viewer.Port}`]), "Nobody is watching");
}

function draw_schedule(event) {
  const share = (time) => Math.min(100, (Math.floor(time / 100) + (time % 100) / 60) / 24 * 100);
  const from = share(event.StartTime), to = share(event.EndTime);
  const text = (time) => `${Math.floor(time / 100)}:${String(time % 100).padStart(2, "0")}`;
  $("schedule").replaceChildren(...["Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"].map((day, bit) => {
    const hours = element("span", {className: "hours", title: `${text(event.StartTime)} to ${text(event.EndTime)}`});
    if (event.Week & 1 << bit && to > from) {
      const armed = element("i");
      armed.style.left = `${from}%`;
      armed.style.width = `${to - from}%`;
      hours.append(armed);
    }
    return element("div", {className: "day"}, day, hours);
  }), element("div", {className: "scale"}, ...[0, 6, 12, 18, 24].map((hour) => element("span", {textContent: hour}))),
  element("p", {className: "hint", textContent: `Armed from ${text(event.StartTime)} to ${text(event.EndTime)}` +
    (to > from ? "." : ": never, as it ends before it starts.")}));
}

function draw_alarm(event, closed) {
  const relay = row("SensorRelay", "DeviceID", event.RelayID), ftp = row("FTPServer", "FTPServerID", event.FTPServerID);
  const mail = row("SMTPServer", "SMTPServerID", event.SMTPServerID);
  fill_list("alarm", [["Input", row("SensorRelay", "DeviceID", "0").Alias ?? "none"], ["At most every", `${event.IgnoreInterval} s`],
    ["Relay", event.RelayID >= 0 && relay.Alias ?
      `${relay.Alias} for ${relay.Interval} s${closed.includes(relay.Alias) ? ", closed now" : ""}` : "–"],
    ["Upload", ftp.Alias ? `${ftp.Alias}, ftp://${ftp.Address}:${ftp.Port}${ftp.Path}` : "–"],
    ["Mail", mail.Alias ? `${mail.Alias}, ${mail.Address}:${mail.Port}` : "–"]]);
}

$("sensor").onclick = async () => {
  const answer = await ask("/camera/sensor", {method: "PUT"}).catch(() => null);
  $("sensor-note").textContent = !answer ? "The camera does not answer." :
    answer.ok ? "What follows is in the list of what happens." : await answer.text();
  look();
};

// The lines of a journal entry about what a request did.
function effects(entry) {
  const line = (kind, text) => element("div", {}, element("span", {className: "tag", textContent: kind}), text);
  const tag = (text) => /^(command|refused)\b/.exec(text)?.[1].replace("command", "message") ?? "";
  return [...entry.changes.map((text) => line(entry.method ? "row" : "", text)),
    ...entry.messages.map((text) => line(tag(text), text.replace(/^refused: /, "")))];
}

function draw_journal() {
  $("log").replaceChildren(...journal.slice(-60).reverse().map((entry) => {
    const words = entry.method ? `${entry.user}  ${entry.method} ${entry.url} · ${entry.http}` +
      (entry.status ? `, ${entry.status} ${entry.words}` : "") + ` · ${entry.milliseconds} ms` : entry.text;
    const printed = entry.printed.length > 0 ? [element("details", {}, element("summary", {textContent: "printed document"}),
      element("pre", {textContent: entry.printed.join("\n")}))] : [];
    return element("li", {}, element("time", {textContent: entry.time}), words, ...effects(entry), ...printed);
  }));
}

// Sends a request. Gives the answer, the words about it and the journal's entry; a request without an answer gives
// null.
async function send(method, url, body, type) {
  const before = last, start = performance.now();
  const headers = body === undefined ? {} : {"Content-Type": type};
  const answer = await ask(url, {method, body, headers}).catch(() => null);
  const bytes = await answer?.arrayBuffer().catch(() => null);
  if (!bytes) return null;
  const milliseconds = Math.round(performance.now() - start);
  await looking;  // a poll from before the answer may lack the entry
  await look();
  const asked = new URL(answer.url);
  const entry = journal.findLast((found) => found.id > before && found.method === method &&
    found.url === asked.pathname + asked.search);
  const binary = answer.headers.get("Content-Type")?.includes("octet-stream") ?? false;
  const text = binary ? "" : new TextDecoder().decode(bytes);
  const code = /<statusCode>(\d+)<\/statusCode>\s*(?:<!--[^]*?-->)?\s*<statusString>([^<]*)/.exec(text);
  const words = `${answer.status} ${answer.statusText}` + (code ? ` · status ${code[1]} ${code[2]}` : "") + ` · ${milliseconds} ms`;
  const good = answer.ok && (!code || code[1] === "1");
  return {answer, text, bytes, binary, entry, words, good, stored: !good && entry?.changes.length > 0};
}

// Two spaces deeper with each element; one that holds only text stays on one line.
function indent_xml(text) {
  let depth = 0;
  const lines = [];
  for (const [line] of text.matchAll(/<([^\s/>?!]+)[^>]*>[^<]*<\/\1>|<[^>]*>|[^<]+/g)) {
    if (line.trim() === "") continue;
    if (line.startsWith("</")) depth--;
    lines.push("  ".repeat(Math.max(0, depth)) + line.trim());
    if (/^<[^/?!][^]*[^/]>$/.test(line) && !line.includes("</")) depth++;
  }
  return lines.join("\n");
}

$("levels").oninput = (event) => {
  levels_touched = Date.now();
  event.target.nextElementSibling.value = event.target.value;
};

// The picture is row 0; the id 1 that the document shows is another row.
$("levels").onchange = async () => {
  levels_touched = Date.now();
  const level = $("levels").elements;
  const result = await send("PUT", "/PSIA/System/Video/inputs/channels/1", "<VideoInputChannel><id>0</id>" +
    `<brightnessLevel>${level.brightness.value}</brightnessLevel><contrastLevel>${level.contrast.value}</contrastLevel>` +
    `<hueLevel>${level.hue.value}</hueLevel></VideoInputChannel>`, "application/xml");
  $("levels-note").textContent = !result ? "Not sent: the camera does not answer." :
    (result.good ? "Set: " : result.stored ? "Stored, but: " : "Not changed: ") + result.words;
  $("levels-note").className = result?.good ? "hint" : "hint bad";
  levels_touched = result?.good ? levels_touched : 0;
};

async function load_resources() {
  if (resources.length > 0) return;
  resources = await (await fetch("resources.json")).json();
  const groups = new Map();
  resources.forEach((resource, i) => {
    const option = element("option", {value: i, textContent: resource.title || resource.url});
    if (!groups.has(resource.group)) groups.set(resource.group, element("optgroup", {label: resource.group}));
    groups.get(resource.group).append(option);
  });
  $("resource").replaceChildren(...groups.values());
  choose_resource();
}

function choose_resource() {
  const resource = resources[$("resource").value];
  $("method").replaceChildren(...resource.methods.map((rule) => element("option", {textContent: rule.method})));
  $("url").value = resource.url;
  choose_method();
}

function choose_method() {
  const resource = resources[$("resource").value];
  const rule = resource.methods.find((found) => found.method === $("method").value);
  const with_body = rule.method === "PUT" || rule.method === "POST";
  $("body").hidden = $("file-row").hidden = !with_body;
  $("body").value = rule.body ? indent_xml(rule.body) : "";
  $("file").value = "";
  const printed = resource.printed && rule.method === "GET" ? " The answer goes to the service's standard output." : "";
  $("may").textContent = (["Only administrators (level 0) may do this.", "Levels 0 and 1 may do this."][rule.level] ?? "Every account of level 0 to 3 may do this.") + printed;
}
$("resource").onchange = choose_resource;
$("method").onchange = choose_method;

// Also removes everything that the last answer showed.
function show_verdict(words, kind) {
  $("verdict").textContent = words;
  $("verdict").className = kind;
  for (const id of ["why", "answer", "effects"]) $(id).replaceChildren();
}

$("request").onsubmit = async (event) => {
  event.preventDefault();
  const rule = resources[$("resource").value].methods.find((found) => found.method === $("method").value);
  const body = $("body").hidden ? undefined : $("file").files[0] ?? $("body").value;
  show_verdict("Waiting for the answer", "");
  const result = await send(rule.method, $("url").value, body, rule.type ?? "application/xml");
  if (!result) return show_verdict("The camera does not answer.", "bad");
  const printed = result.answer.status === 500 ? result.entry?.printed ?? [] : [];  // the web server's own page
  show_verdict(result.words, result.good ? "good" : "bad");
  $("why").textContent = result.stored ? "The rows below changed all the same: the service stores first and then reports " +
    "what the daemons answer." : printed.length > 0 ? "The document below went to the service's standard output, not to the client: over FastCGI a " +
    "client receives nothing here, and the web server makes an error of it. Started as a plain CGI program the service delivers it." : "";
  $("answer").textContent = printed.length > 0 ? printed.slice(1).join("\n") : indent_xml(result.text);
  $("effects").replaceChildren(...(result.entry ? effects(result.entry) : []).map((line) => element("li", {}, line)));
  if (result.binary) {
    $("answer").replaceChildren(element("a", {href: URL.createObjectURL(new Blob([result.bytes])), download: "psia_config.dat",
      textContent: `${result.bytes.byteLength} bytes, to be saved`}));
  }
};

const [kept_user, kept_credentials] = JSON.parse(sessionStorage.getItem(kKept) ?? "[]");
if (kept_credentials) sign_in(kept_user, kept_credentials);
