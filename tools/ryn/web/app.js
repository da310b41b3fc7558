// The commissioning page of `ryn web`: drives, registers, console, scope, backup and restore,
// all through the JSON API under /api/ (docs/web.md).
'use strict';

const $ = (id) => document.getElementById(id);
const el = (tag, { dataset, ...props } = {}, ...children) => {
  const e = Object.assign(document.createElement(tag), props);
  Object.assign(e.dataset, dataset || {});
  for (const c of children) e.append(c);
  return e;
};

async function api(path, body) {
  const init = body === undefined ? {} : {
    method: 'POST', headers: { 'Content-Type': 'application/json' }, body: JSON.stringify(body),
  };
  const res = await fetch(path, init);
  const data = await res.json().catch(() => ({ error: res.statusText }));
  if (!res.ok) throw new Error(data.error || res.statusText);
  return data;
}

// ---- Tabs ----

for (const b of document.querySelectorAll('#tabs button')) {
  b.onclick = () => {
    for (const o of document.querySelectorAll('#tabs button, .tab')) o.classList.remove('active');
    b.classList.add('active');
    $(b.dataset.tab).classList.add('active');
    if (b.dataset.tab === 'registers') loadRegisters();
    if (b.dataset.tab === 'scope') plot.resize($('scope').clientWidth - 24, 400); // drawn while hidden
  };
}

// ---- Drives: polled, so that drives joining or leaving the bus show without a reload ----

let axes = [];
async function pollDrives() {
  try {
    const data = await api('/api/drives');
    $('bus').textContent = data.bus;
    const body = $('drive-table').tBodies[0];
    body.replaceChildren(...data.drives.map((d) => el('tr', { dataset: { axis: d.axis } },
      ...[d.axis, d.product, d.firmware, d.card, d.serial, d.boot_revision]
        .map((v) => el('td', { textContent: v })))));
    const now = data.drives.map((d) => d.axis);
    if (now.join() !== axes.join()) {
      axes = now;
      for (const s of document.querySelectorAll('.axis-select')) fillAxes(s);
    }
  } catch (e) {
    $('bus').textContent = 'server unreachable: ' + e.message;
  }
  setTimeout(pollDrives, 1000);
}

function fillAxes(select) {
  const was = select.value;
  select.replaceChildren(...axes.map((a) => el('option', { value: a, textContent: a })));
  if (was !== '' && axes.includes(Number(was))) select.value = was;
}

// ---- Registers ----

const PAGE = 50;
let regOffset = 0;
let regRequest = 0;

function entriesText(r) {
  if (r.entries.length) return r.entries.map((e) => (e.mask ? 'mask ' : '') + e.value + ' ' + e.name).join(', ');
  return r.range === 'none' ? '' : r.range;
}

// Why the drive or the dictionary refused a value, in the dictionary's words.
function refusal(answer, r) {
  const words = (answer.explanation || []).join(' ');
  const known = r ? (r.entries.length ? 'entries: ' + entriesText(r) : r.range !== 'none' ? 'range ' + r.range : '') : '';
  return [answer.message, words || known].filter(Boolean).join(': ');
}

// "K1.0", "K5:2.1"; the motion controller at axis 63 is written "*W10".
const elementName = (name, axis) => (Number(axis) === 63 ? '*' + name : name + '.' + axis);

function registerRow(axis, r) {
  const cell = el('td', { className: 'value' });
  r.values = r.values || [];
  for (let s = 0; s < r.elements; s++) {
    const name = elementName(r.name + (r.elements > 1 ? ':' + s : ''), axis);
    const input = el('input', {
      value: r.values[s] ?? '', readOnly: !r.writable[s], title: name,
      dataset: { register: name },
    });
    const note = el('span', { className: 'answer' });
    input.onkeydown = async (ev) => {
      if (ev.key !== 'Enter' || input.readOnly) return;
      try {
        const answer = await api('/api/send', { line: name + '=' + input.value, axis });
        if (answer.code === 0 && answer.acknowledged) {
          const back = await api('/api/send', { line: name, axis });
          input.value = back.answer.slice(back.answer.indexOf('=') + 1);
          note.className = 'answer ok';
          note.textContent = 'drive: ' + back.answer;
        } else {
          note.className = 'answer refused';
          note.textContent = refusal(answer, r);
        }
      } catch (e) {
        note.className = 'answer refused';
        note.textContent = e.message;
      }
    };
    if (!r.writable[s]) note.textContent = 'read-only';
    cell.append(input, note);
  }
  return el('tr', { dataset: { name: r.name } },
    el('td', { textContent: r.name }), el('td', { textContent: r.alias || '' }), cell,
    el('td', { textContent: r.unit }), el('td', { textContent: entriesText(r) }),
    el('td', { textContent: r.description || '' }));
}

async function loadRegisters() {
  const axis = Number($('reg-axis').value || 0);
  const q = $('reg-search').value.trim();
  const mine = ++regRequest;
  try {
    const data = await api(`/api/registers?axis=${axis}&q=${encodeURIComponent(q)}&offset=${regOffset}&limit=${PAGE}`);
    if (mine !== regRequest) return; // a later search has been asked for
    $('reg-table').tBodies[0].replaceChildren(...data.registers.map((r) => registerRow(axis, r)));
    $('reg-page').textContent = data.total ? `${data.offset + 1}-${data.offset + data.registers.length} of ${data.total}` : 'none';
  } catch (e) {
    $('reg-page').textContent = e.message;
  }
}

let searchTimer = 0;
$('reg-search').oninput = () => {
  clearTimeout(searchTimer);
  searchTimer = setTimeout(() => { regOffset = 0; loadRegisters(); }, 200);
};
$('reg-axis').onchange = () => { regOffset = 0; loadRegisters(); };
$('reg-prev').onclick = () => { regOffset = Math.max(0, regOffset - PAGE); loadRegisters(); };
$('reg-next').onclick = () => { regOffset += PAGE; loadRegisters(); };

// ---- Console ----

const history = [];
let historyAt = 0;
let names = [];

async function loadNames() {
  try {
    const n = await api('/api/names?axis=' + (axes[0] ?? 0));
    names = [...new Set([...n.commands, ...n.aliases, ...n.types])].sort();
  } catch (e) { names = []; }
}

function log(text, cls) {
  const line = el('div', { textContent: text, className: cls || '' });
  $('console-log').append(line);
  $('console-log').scrollTop = $('console-log').scrollHeight;
  return line;
}

async function sendLine() {
  const line = $('console-line').value.trim();
  if (!line) return;
  history.push(line);
  historyAt = history.length;
  $('console-line').value = '';
  log('> ' + line);
  try {
    const a = await api('/api/send', { line });
    if (a.code === 0 && a.acknowledged) log(a.answer, 'ok');
    else if (a.code === 0 && !a.sent) log('(nothing to send)');
    else log((a.answer ? a.answer + '  ' : '') + refusal(a), 'refused');
  } catch (e) {
    log(e.message, 'refused');
  }
}

$('console-send').onclick = sendLine;
$('console-line').onkeydown = (ev) => {
  const input = $('console-line');
  if (ev.key === 'Enter') sendLine();
  else if (ev.key === 'ArrowUp' && historyAt > 0) input.value = history[--historyAt];
  else if (ev.key === 'ArrowDown' && historyAt < history.length) input.value = history[++historyAt] ?? '';
  else if (ev.key === 'Tab') {
    ev.preventDefault();
    const m = /[A-Za-z_][A-Za-z0-9_]*$/.exec(input.value.slice(0, input.selectionStart));
    if (!m) return;
    const word = m[0].toUpperCase();
    const found = names.filter((n) => n.toUpperCase().startsWith(word));
    // Completes as far as the matching names agree, and lists them when several are left.
    let common = found[0] || m[0];
    for (const f of found) while (!f.toUpperCase().startsWith(common.toUpperCase())) common = common.slice(0, -1);
    if (common.length >= m[0].length) {
      input.value = input.value.slice(0, m.index) + common + input.value.slice(m.index + m[0].length);
    }
    $('console-hint').textContent = found.length > 1 ? found.slice(0, 30).join('  ') : '';
  } else return;
  if (ev.key !== 'Tab') ev.preventDefault();
};

// ---- Scope ----

const CHANNELS = 8;
const KEEP = 200000; // samples kept for the export
const WINDOW_MS = 10000; // the live view shows the last ten seconds
let scopeSource = null;
let scopeData = [];
let scopeLabels = ['time (s)'];
let paused = false;
let received = 0;
let missed = 0;

for (let c = 0; c < CHANNELS; c++) {
  const axis = el('select', { className: 'axis-select', id: 'scope-axis-' + c });
  $('scope-channels').tBodies[0].append(el('tr', {},
    el('td', { textContent: 'Channel ' + (c + 1) }),
    el('td', {}, el('input', { id: 'scope-reg-' + c, placeholder: c === 0 ? 'M7' : '', value: c === 0 ? 'M7' : '' })),
    el('td', {}, 'axis ', axis)));
}

// The live view follows the newest samples until the user zooms; a double-click zooms out and
// follows again.
let userZoomed = false;
const plot = new Dygraph($('scope-plot'), [[0, null]], {
  labels: ['time (s)', '-'], xlabel: 'time (s)', legend: 'always', animatedZooms: false,
  drawPoints: false, connectSeparatedPoints: false,
  zoomCallback: () => { userZoomed = true; },
});
$('scope-plot').addEventListener('dblclick', () => setTimeout(() => { userZoomed = false; redraw(); }));

function redraw() {
  if (paused || !scopeData.length) return;
  const last = scopeData[scopeData.length - 1][0];
  const zoomed = userZoomed;
  plot.updateOptions({
    file: scopeData, labels: scopeLabels,
    ...(zoomed ? {} : { dateWindow: [Math.max(0, last - WINDOW_MS / 1000), last] }),
  });
}

function scopeStatus() {
  $('scope-status').textContent = `${received} samples` + (missed ? `, ${missed} periods missed` : '') + (paused ? ' (paused)' : '');
}

$('scope-start').onclick = () => {
  const channels = [];
  for (let c = 0; c < CHANNELS; c++) {
    const reg = $('scope-reg-' + c).value.trim();
    if (reg) channels.push(elementName(reg, $('scope-axis-' + c).value || 0));
  }
  if (!channels.length) return;
  scopeData = [];
  received = 0;
  missed = 0;
  scopeLabels = ['time (s)', ...channels];
  const period = Number($('scope-period').value) || 10;
  const url = `/api/scope?period_ms=${period}&channels=${encodeURIComponent(channels.join(','))}`;
  scopeSource = new EventSource(url);
  scopeSource.addEventListener('samples', (ev) => {
    const batch = JSON.parse(ev.data);
    for (const s of batch.samples) scopeData.push([s[1] / 1000, ...s.slice(2)]);
    if (scopeData.length > KEEP) scopeData.splice(0, scopeData.length - KEEP);
    received += batch.samples.length;
    missed = batch.missed;
    scopeStatus();
  });
  scopeSource.onerror = () => {
    if (scopeSource && scopeSource.readyState === EventSource.CLOSED) {
      $('scope-status').textContent = 'the scope could not start (check the channels)';
      stopScope();
    }
  };
  $('scope-start').disabled = true;
  $('scope-stop').disabled = false;
  $('scope-pause').disabled = false;
  paused = false;
};

function stopScope() {
  if (scopeSource) scopeSource.close();
  scopeSource = null;
  $('scope-start').disabled = false;
  $('scope-stop').disabled = true;
  $('scope-pause').disabled = true;
}
$('scope-stop').onclick = stopScope;
$('scope-pause').onclick = () => {
  paused = !paused;
  $('scope-pause').textContent = paused ? 'Resume' : 'Pause';
  scopeStatus();
};
setInterval(redraw, 200);

function download(name, href) {
  const a = el('a', { href, download: name });
  document.body.append(a);
  a.click();
  a.remove();
}

$('scope-csv').onclick = () => {
  const rows = [scopeLabels.join(','), ...scopeData.map((r) => r.map((v) => v ?? '').join(','))];
  download('scope.csv', URL.createObjectURL(new Blob([rows.join('\n') + '\n'], { type: 'text/csv' })));
};

$('scope-png').onclick = () => {
  const canvases = $('scope-plot').querySelectorAll('canvas');
  const [w, h] = [canvases[0].width, canvases[0].height];
  const out = el('canvas', { width: w, height: h });
  const g = out.getContext('2d');
  g.fillStyle = '#fff';
  g.fillRect(0, 0, w, h);
  for (const c of canvases) g.drawImage(c, 0, 0);
  download('scope.png', out.toDataURL('image/png'));
};

// ---- Backup and restore ----

async function follow(job, bar) {
  for (;;) {
    const j = await api('/api/jobs/' + job.id);
    bar.value = j.progress;
    if (j.done) return j;
    await new Promise((r) => setTimeout(r, 100));
  }
}

$('backup-start').onclick = async () => {
  $('backup-start').disabled = true;
  try {
    const j = await follow(await api('/api/backup', {}), $('backup-progress'));
    const r = j.result;
    if (r.code !== 0) throw new Error(r.message || 'error ' + r.code);
    $('backup-summary').textContent = `${r.axes} axes, ${r.registers} registers, ${r.elements} elements in ${r.seconds.toFixed(2)} s`;
    download('ryn-backup.txt', `/api/jobs/${j.id}/file`);
  } catch (e) {
    $('backup-summary').textContent = 'backup failed: ' + e.message;
  }
  $('backup-start').disabled = false;
};

let restoreText = null;
$('restore-file').onchange = async () => {
  const file = $('restore-file').files[0];
  restoreText = null;
  $('restore-apply').disabled = true;
  $('diff-table').tBodies[0].replaceChildren();
  $('restore-summary').textContent = '';
  if (!file) return;
  $('diff-summary').textContent = 'comparing with the drives...';
  try {
    const text = await file.text();
    const d = await api('/api/diff', { text });
    $('diff-table').tBodies[0].replaceChildren(...d.differences.map((x) => el('tr', {},
      ...[x.axis, x.name, x.file, x.drive ?? '(none)'].map((v) => el('td', { textContent: v })))));
    const n = d.differences.length;
    $('diff-summary').textContent = `${n} difference${n === 1 ? '' : 's'} between ${file.name} and the drives` +
      (d.problems.length ? `; ${d.problems.length} lines cannot be read (first: line ${d.problems[0].line}, ${d.problems[0].message})` : '');
    restoreText = text;
    $('restore-apply').disabled = false;
  } catch (e) {
    $('diff-summary').textContent = 'cannot compare: ' + e.message;
  }
};

$('restore-apply').onclick = async () => {
  $('restore-apply').disabled = true;
  try {
    const j = await follow(await api('/api/restore', { text: restoreText }), $('restore-progress'));
    const r = j.result;
    let text = `applied ${r.applied}, skipped ${r.skipped}, refused ${r.refused}`;
    if (r.first_refused) text += ` (first refused: line ${r.first_refused.line}, ${r.first_refused.text})`;
    for (const m of r.mismatches) text += `; axis ${m.axis}: ${m.what} ${m.file} in the file, ${m.drive} on the bus`;
    if (r.code !== 0) text += `; ended with: ${r.message}` + (r.problems.length ? ` (line ${r.problems[0].line}: ${r.problems[0].message})` : '');
    $('restore-summary').textContent = text;
    $('restore-summary').className = r.code === 0 ? 'ok' : 'refused';
  } catch (e) {
    $('restore-summary').textContent = 'restore failed: ' + e.message;
  }
  $('restore-apply').disabled = false;
};

pollDrives().then(loadNames);
