// The page's side of the desk.  The server pushes what changes (/events); each press is one POST, and what comes of it,
// an answer, a line of the log, the session's end, is shown beside the button that was pressed last.
'use strict';

const IDLE_SECONDS = 11; // the limit is ten whole seconds, so it strikes with the eleventh
const FILE_LIMIT = 16 * 1024 * 1024;
const LINE_LIMIT = 2000;
const CAUSE_WINDOW = 15000; // milliseconds in which a fault is laid to the last press

const $ = id => document.getElementById(id);

// Makes an element; text is never taken for markup.
function make(tag, properties = {}, ...children) {
  const element = Object.assign(document.createElement(tag), properties);
  element.append(...children);
  return element;
}

// --- the last press, and what came of it

const press = {button: null, note: null, at: 0, bad: false};

function say(text, bad) {
  if (!press.note || (press.bad && !bad))
    return; // a fault is not covered by what follows it
  press.note.textContent = press.bad && bad ? `${press.note.textContent} · ${text}` : text;
  press.bad = press.bad || bad;
  press.note.classList.toggle('bad', press.bad);
  press.button.classList.toggle('bad', press.bad);
  $('said').textContent = press.note.textContent;
}

function forget() {
  press.note?.remove();
  press.button?.classList.remove('bad');
  Object.assign(press, {button: null, note: null, at: 0, bad: false});
}

function begin(button) {
  forget();
  Object.assign(press, {button, note: make('p', {className: 'note'}), at: Date.now()});
  // At the end of a row, but right behind the button in a grid.
  const row = button.id === 'again' ? $('start') : button.closest('.row');
  if (row)
    row.append(press.note);
  else
    button.after(press.note);
  say('…', false);
}

const isRecent = () => press.button && Date.now() - press.at < CAUSE_WINDOW;

async function post(path, body) {
  try {
    const response = await fetch(path, {method: 'POST', body});
    return response.ok ? null : (await response.json()).reason;
  } catch {
    return 'the desk does not answer';
  }
}

// True when it was carried out.
async function act(button, path, body) {
  begin(button);
  const mine = press.note;
  const reason = await post(path, body);
  if (press.note === mine)
    reason ? say(reason, true) : mine.textContent === '…' && say('sent', false);
  return !reason;
}

// What a line of the log says about the press before it.
const ANSWERS = [
  [/^Resize complete\. jpegSize: (\d+) X (\d+)/, found => `picture taken, ${found[1]} × ${found[2]}`],
  [/^ScreenModeChange success: (\d)/, found => `turned by ${found[1] * 90}°`],
  [/^(?:Md|Sys)Event : (.*)/, found => `the daemon was told of ${found[1] || 'it'}`],
  [/^MdState : (.*)/, found => `the encoder's state is ${found[1]}`],
  [/^LogLevel\[\d+\] (.*)/, found => `logged: ${found[1]}`],
  [/^Receive unix signal:(\d+)/, found => `signal ${found[1]} was received`],
  [/^Initialize succeed/, () => 'the session is open'],
];

function attribute(line) {
  if (!isRecent() || line.message.startsWith('no requests for'))
    return;
  if (line.level === 'ERR' || line.message.startsWith('ScreenModeChange failed')) {
    say(line.message.trim(), true);
    return;
  }
  for (const [pattern, text] of ANSWERS) {
    const found = pattern.exec(line.message);
    if (found)
      say(text(found), false);
  }
}

// --- the session

let session = {phase: 'lost'}; // nothing is known yet
let clock = 0; // the server's minus ours, in milliseconds
const now = () => Date.now() + clock;

function span(milliseconds) {
  const seconds = Math.max(0, Math.round(milliseconds / 1000));
  if (seconds < 60)
    return `${seconds} s`;
  return seconds < 3600 ? `${Math.floor(seconds / 60)} min ${seconds % 60} s`
                        : `${Math.floor(seconds / 3600)} h ${Math.floor(seconds / 60) % 60} min`;
}

const PHASES = {none: 'Not started', starting: 'Starting', ready: 'Running', ending: 'Ending', ended: 'Ended'};

function showSession(news) {
  const before = session;
  session = news;
  const runs = ['starting', 'ready', 'ending'].includes(session.phase);
  $('pill').dataset.phase = session.phase;
  $('phase').textContent = PHASES[session.phase];
  $('state').textContent = !runs ? '–' : session.state || (session.debug ? '–' : 'shown with --debug');
  $('rotation').textContent = runs ? `${session.rotation}°` : '–';
  $('pid').textContent = runs ? session.pid : '–';
  $('over').hidden = session.phase !== 'ended';
  $('cause').textContent = session.cause;
  $('status').textContent = session.status;
  $('last').textContent = session.lines.join('\n');
  $('start-button').disabled = runs;
  for (const button of document.querySelectorAll('[data-post="/rotate"]'))
    button.setAttribute('aria-pressed', runs && button.dataset.mode * 90 === session.rotation);
  if (session.phase === 'ended' && before.pid === session.pid && before.phase !== 'ended' && isRecent() &&
      !session.cause.startsWith('idle'))
    say(`the session ended: ${session.cause}`, true);
  tick();
}

// --- the pictures

const pictures = {};

// Its size and kind; a JPEG may stand under a GIF's name.
function facts(picture, name) {
  const kind = picture.type === 'image/gif' ? 'GIF' : picture.type === 'image/jpeg' ? 'JPEG' : 'no picture';
  const odd = name === 'GIF' && kind === 'JPEG' ? ' under a GIF\'s name' : '';
  return `${picture.width} × ${picture.height} · ${kind}${odd} · ${(picture.bytes / 1024).toFixed(0)} KB`;
}

function showLive(picture) {
  pictures.live = picture;
  $('live').hidden = !picture.there;
  $('nolive').hidden = picture.there;
  $('failure').hidden = !picture.failure;
  $('bezel').classList.toggle('failed', picture.failure);
  if (picture.there)
    $('live').src = `/picture/live?${picture.version}`;
  if (picture.failure && isRecent())
    say('the failure picture is shown', true);
  tick();
}

function showSnapshot(picture) {
  pictures.snapshot = picture;
  $('open-snapshot').disabled = !picture.there;
  if ($('full').open)
    fillDialog();
}

function fillDialog() {
  $('snapshot').src = `/picture/snapshot?${pictures.snapshot.version}`;
  const failure = pictures.snapshot.failure ? ' · failure picture' : '';
  $('snapshot-facts').textContent = facts(pictures.snapshot, 'JPEG') + failure;
}

// --- what goes on by itself between two pushes: the clocks

function tick() {
  const runs = ['starting', 'ready', 'ending'].includes(session.phase);
  $('since').textContent = runs ? span(now() - session.began) : '–';
  $('ended').textContent = session.ended ? `${span(now() - session.ended)} ago` : '';
  const left = session.lastRequest && session.phase === 'ready'
    ? Math.max(0, IDLE_SECONDS - (now() - session.lastRequest) / 1000) : 0;
  $('idle').textContent = left ? `${Math.ceil(left)} s` : '–';
  $('idlebar').value = left;
  $('idlebar').classList.toggle('soon', left < 4);
  if (pictures.live) {
    $('live-facts').textContent = pictures.live.there
      ? `${facts(pictures.live, 'GIF')} · ${span(now() - pictures.live.written)} ago` : 'No live view';
  }
}
setInterval(tick, 500);

// --- the log

const held = []; // lines that came while paused
const isPaused = () => $('pause').getAttribute('aria-pressed') === 'true';

function isShown(item) {
  const level = document.querySelector(`.levels input[value="${item.dataset.level}"]`);
  return (!level || level.checked) && item.textContent.toLowerCase().includes($('filter').value.toLowerCase());
}

function appendLines(lines) {
  const list = $('lines');
  for (const line of lines) {
    const item = make('li', {className: line.level, title: line.text},
      make('time', {textContent: line.time.slice(11)}), make('span', {textContent: line.level}),
      make('b', {textContent: line.message}));
    item.dataset.level = line.level;
    item.hidden = !isShown(item);
    list.append(item);
  }
  while (list.childElementCount > LINE_LIMIT)
    list.firstElementChild.remove();
}

function takeLines(lines) {
  lines.forEach(attribute);
  if (isPaused()) {
    held.push(...lines);
    held.splice(0, Math.max(0, held.length - LINE_LIMIT));
    $('pause').textContent = `Go on (${held.length})`;
  } else {
    appendLines(lines);
  }
}

function refilter() {
  for (const item of $('lines').children)
    item.hidden = !isShown(item);
}
$('filter').addEventListener('input', refilter);
document.querySelector('.levels').addEventListener('change', refilter);
$('pause').addEventListener('click', () => {
  const pauses = !isPaused();
  $('pause').setAttribute('aria-pressed', pauses);
  $('pause').textContent = pauses ? 'Go on (0)' : 'Pause';
  if (!pauses)
    appendLines(held.splice(0));
});

// --- the desk's own state

function showDesk(desk) {
  $('keep').checked = desk.keepAlive;
  $('shown').textContent = desk.testCard ? 'The test card is shown.' : 'Your own pictures are shown, in turn.';
  $('waiting').hidden = desk.waiting.length === 0;
  $('waiting').textContent = `From the next start on: ${desk.waiting.join(', ')}`;
}

// --- the buttons

document.addEventListener('submit', event => {
  if (!event.target.dataset.post)
    return;
  event.preventDefault();
  const path = event.submitter?.dataset.post || event.target.dataset.post;
  act(event.submitter, path, new URLSearchParams(new FormData(event.target)));
});

document.addEventListener('click', event => {
  const button = event.target.closest('button[type=button][data-post]');
  if (button) {
    const {post: path, ...values} = button.dataset;
    act(button, path, new URLSearchParams(values));
  }
});

$('keep').addEventListener('change', async () => {
  const reason = await post('/keep', new URLSearchParams({on: $('keep').checked ? 1 : 0}));
  if (reason)
    $('keep').checked = !$('keep').checked;
});

$('open-snapshot').addEventListener('click', () => {
  fillDialog();
  $('full').showModal();
});

// Underscores are where a long name may be broken.
function breakable(name) {
  return name.split(/(?<=_)/).flatMap((piece, index) => index ? [make('wbr'), piece] : [piece]);
}

function fillBoard(catalogue) {
  const grids = new Map();
  for (const event of catalogue.events) {
    if (!grids.has(event.group)) {
      const grid = make('div', {className: 'buttons', ariaLabel: event.group});
      grid.setAttribute('role', 'group');
      grids.set(event.group, grid);
      $('events').append(make('h3', {textContent: event.group}), grid);
    }
    const label = make('span', {}, event.label);
    if (event.ends)
      label.prepend(make('i', {className: 'ends'}), make('span', {className: 'hidden', textContent: 'ends: '}), ' ');
    const button = make('button', {type: 'button'}, label,
      make('span', {className: 'channel', textContent: `${event.channel} ${event.code}`}),
      make('small', {}, ...breakable(event.name)));
    Object.assign(button.dataset, {post: '/board/event', channel: event.channel, code: event.code});
    grids.get(event.group).append(button);
  }
  const signals = make('div', {className: 'buttons'});
  for (const signal of catalogue.signals) {
    const button = make('button', {type: 'button'}, signal.name, make('small', {textContent: signal.effect}));
    Object.assign(button.dataset, {post: '/signal', name: signal.name});
    signals.append(button);
  }
  $('signals').append(signals);
  $('states').append(...catalogue.states.map((name, code) => make('option', {value: code, textContent: name})));
  $('states').value = catalogue.states.length - 1;
  $('functions').append(...catalogue.functions.map(name => make('option', {textContent: name})));
  $('functions').value = 'kt_md_capture';
}

// --- own pictures

async function show(files) {
  const button = document.querySelector('label.button');
  let first = 1;
  for (const file of files) {
    if (file.size > FILE_LIMIT) {
      complain(button, `${file.name} is larger than ${FILE_LIMIT >> 20} MB`);
      return;
    }
    if (!await act(button, `/board/picture?begin=${first}`, file)) {
      say(file.name, true);
      return;
    }
    first = 0;
  }
  const shown = files.length === 1 ? `${files[0].name} is` : `${files.length} pictures are`;
  if (files.length > 0)
    say(`${shown} what the encoder sees now`, false);
}

function complain(button, fault) {
  begin(button);
  say(fault, true);
}

$('files').addEventListener('change', async () => {
  await show([...$('files').files]);
  $('files').value = ''; // the same file may be chosen again
});

let inside = 0; // elements that something is dragged over
document.addEventListener('dragenter', () => { $('drop').hidden = ++inside === 0; });
document.addEventListener('dragleave', () => { $('drop').hidden = --inside <= 0; });
document.addEventListener('dragover', event => event.preventDefault());
document.addEventListener('drop', event => {
  event.preventDefault();
  inside = 0;
  $('drop').hidden = true;
  show([...event.dataTransfer.files]);
});

// --- what the server pushes

async function connect() {
  fillBoard(await (await fetch('/catalogue')).json());
  const events = new EventSource('/events');
  const on = (subject, take) => events.addEventListener(subject, event => take(JSON.parse(event.data)));
  on('hello', time => { // everything is told anew
    clock = time - Date.now();
    forget();
    held.length = 0;
    $('lines').replaceChildren();
    session = {phase: 'lost'};
  });
  on('session', showSession);
  on('live', showLive);
  on('snapshot', showSnapshot);
  on('log', takeLines);
  on('desk', showDesk);
  events.addEventListener('error', () => { // the browser tries again by itself
    $('pill').dataset.phase = 'lost';
    $('phase').textContent = 'The desk does not answer';
  });
}
connect();
