// The live dashboard of zefo-monitor --listen. Once per sampling period it asks the board for
// the newest pass (/api/latest: the process table, and which kinds the board has) and for the
// charted figures of the passes it has not seen yet (/api/history); on first load the history
// fills the charts with the last minutes. When the board stops answering it says so and keeps
// asking until it answers again.
import { ChartPanel, colour } from './charts.js';
import { ProcessTable } from './table.js';
import { UNITS, byName, clockTime } from './units.js';

const RETRY_MS = 2000;
// The most passes the page holds, whatever the window: at a 10 ms period ten minutes would be
// 60000 of them.
const MAX_ROWS = 20000;

// The charted figures received so far, by series: times in seconds (as uPlot wants them) and
// one value per time for every series, null where a pass did not have it.
const store = {
  times: [],
  // keyOf(series) -> { kind, item, part, figure, values }
  series: new Map(),
  lastMs: 0,
  windowSeconds: 600,
  periodMs: 2000,
};

function keyOf(s) {
  return [s.kind, s.item, s.part, s.figure].join('\u0000');
}

// Appends the passes of a /api/history answer newer than those already held.
function append(history) {
  store.windowSeconds = history.window_seconds;
  store.periodMs = history.period_ms;
  const incoming = history.series.map((s) => {
    const key = keyOf(s);
    if (!store.series.has(key)) {
      store.series.set(key, { ...s, values: store.times.map(() => null) });
    }
    return { target: store.series.get(key), values: s.values };
  });
  let added = 0;
  history.times.forEach((ms, row) => {
    if (ms <= store.lastMs) return;
    // A gap (zefo-monitor was stopped, the page lost the connection) stays a gap in the lines.
    if (store.lastMs > 0 && ms - store.lastMs > 3 * Math.max(store.periodMs, 1000)) {
      pushRow((store.lastMs + 1) / 1000, new Map());
    }
    pushRow(ms / 1000, new Map(incoming.map((s) => [s.target, s.values[row]])));
    store.lastMs = ms;
    added += 1;
  });
  // Keep what the board keeps.
  const oldest = store.lastMs / 1000 - store.windowSeconds;
  let drop = Math.max(0, store.times.length - MAX_ROWS);
  while (drop < store.times.length && store.times[drop] <= oldest) drop += 1;
  if (drop > 0) {
    store.times.splice(0, drop);
    for (const s of store.series.values()) s.values.splice(0, drop);
  }
  return added;
}

function reset() {
  store.times = [];
  store.series.clear();
  store.lastMs = 0;
}

function pushRow(seconds, values) {
  store.times.push(seconds);
  for (const s of store.series.values()) s.values.push(values.get(s) ?? null);
}

function pick(filter) {
  return [...store.series.values()].filter(filter);
}

// Series of one figure per item, a colour per item, the machine-wide one last and bold.
function perItem(series, scale, label = (s) => s.item) {
  const sorted = [...series].sort((a, b) => byName(a.item, b.item));
  return sorted.map((s, i) => ({
    label: label(s),
    colour: s.item === 'total' ? '#1d2330' : colour(i),
    width: s.item === 'total' ? 2.5 : 1.5,
    values: s.values.map((v) => (v == null ? null : v * scale)),
  }));
}

// Read and write (or receive and transmit) of each item: one colour per item, writes dashed.
function readWrite(series, scale, group, name, figures) {
  const groups = [...new Set(series.map(group))].sort(byName);
  const out = [];
  groups.forEach((g, i) => {
    for (const [figure, dash] of [[figures[0], undefined], [figures[1], [5, 3]]]) {
      const s = series.find((x) => group(x) === g && x.figure === figure);
      if (!s) continue;
      out.push({
        label: `${name(s)} ${figure}`,
        colour: colour(i),
        dash,
        values: s.values.map((v) => (v == null ? null : v * scale)),
      });
    }
  });
  return out;
}

const mbps = UNITS.megabytesPerSecond.scale;
const gbps = UNITS.gigabytesPerSecond.scale;
const interfaceName = (s) => s.item.replace(/:$/, '');
// The mount table writes a blank in a mount point as \040 (and tab, newline, backslash alike).
const mountPoint = (s) =>
  s.item.replace(/\\([0-7]{3})/g, (_, octal) => String.fromCharCode(parseInt(octal, 8)));

// The panels, in page order. `kind`: the JSON kind whose items feed it; `empty`: what to say when
// the board has none of them; `none`: when it has some but they lack the panel's figure.
function panelDefinitions() {
  const ddrDevices = [...new Set(pick((s) => s.kind === 'ddr').map((s) => s.item))].sort(byName);
  const ddrPorts = (ddrDevices.length > 0 ? ddrDevices : ['']).map((device) => ({
    id: device ? `ddr-ports-${device}` : 'ddr-ports',
    title: device ? `DDR ${device} per port` : 'DDR per port',
    kind: 'ddr',
    unit: UNITS.gigabytesPerSecond,
    empty: 'This board has no DDR monitor devices.',
    series: () =>
      readWrite(
        pick((s) => s.kind === 'ddr' && s.item === device && s.part !== ''),
        gbps,
        (s) => s.part,
        (s) => s.part,
        ['read', 'write'],
      ),
  }));
  return [
    {
      id: 'cpu-load',
      title: 'CPU load',
      kind: 'cpu',
      unit: UNITS.percent,
      max: 100,
      empty: 'No CPU figures.',
      series: () => perItem(pick((s) => s.kind === 'cpu' && s.figure === 'busy'), 1),
    },
    {
      id: 'cpu-frequency',
      title: 'CPU frequency',
      kind: 'cpu',
      unit: UNITS.mhzFromKhz,
      empty: 'No CPU figures.',
      none: 'This board does not report CPU frequencies (no cpufreq).',
      series: () =>
        perItem(pick((s) => s.kind === 'cpu' && s.figure === 'cur_freq'), UNITS.mhzFromKhz.scale),
    },
    {
      id: 'bpu-load',
      title: 'BPU load',
      kind: 'bpu',
      unit: UNITS.percent,
      max: 100,
      empty: 'This board has no BPU.',
      series: () => perItem(pick((s) => s.kind === 'bpu' && s.figure === 'ratio'), 1),
    },
    {
      id: 'bpu-frequency',
      title: 'BPU frequency',
      kind: 'bpu',
      unit: UNITS.mhzFromHz,
      empty: 'This board has no BPU.',
      none: 'This BPU does not report its frequency.',
      series: () =>
        perItem(pick((s) => s.kind === 'bpu' && s.figure === 'cur_freq'), UNITS.mhzFromHz.scale),
    },
    {
      id: 'memory',
      title: 'Memory used',
      kind: 'memory',
      unit: UNITS.mebibytes,
      empty: 'No memory figures.',
      series: () =>
        perItem(
          pick((s) => s.kind === 'memory' && s.figure === 'used'),
          UNITS.mebibytes.scale,
          () => 'used',
        ),
    },
    {
      id: 'ddr-devices',
      title: 'DDR per device',
      kind: 'ddr',
      unit: UNITS.gigabytesPerSecond,
      empty: 'This board has no DDR monitor devices.',
      series: () =>
        readWrite(
          pick((s) => s.kind === 'ddr' && s.part === ''),
          gbps,
          (s) => s.item,
          (s) => s.item,
          ['read', 'write'],
        ),
    },
    ...ddrPorts,
    {
      id: 'disk',
      title: 'Disk bandwidth',
      kind: 'disk',
      unit: UNITS.megabytesPerSecond,
      empty: 'No mounted disks.',
      series: () =>
        readWrite(pick((s) => s.kind === 'disk'), mbps, (s) => s.item, mountPoint, [
          'read',
          'write',
        ]),
    },
    {
      id: 'network',
      title: 'Network bandwidth',
      kind: 'network',
      unit: UNITS.megabytesPerSecond,
      empty: 'No network interfaces.',
      series: () =>
        readWrite(pick((s) => s.kind === 'network'), mbps, (s) => s.item, interfaceName, [
          'rx',
          'tx',
        ]),
    },
    {
      id: 'temperature',
      title: 'Temperatures',
      kind: 'temperature',
      unit: UNITS.celsius,
      zero: false,
      empty: 'This board has no thermal zones.',
      series: () => perItem(pick((s) => s.kind === 'temperature'), 1),
    },
  ];
}

// Why a panel has no chart, from the newest pass; null when it can have one.
function absence(definition, latest) {
  if (latest === null) return 'Waiting for the first pass…';
  if (!latest.kinds.includes(definition.kind)) {
    return 'Not sampled: this zefo-monitor watches chosen processes only.';
  }
  const hasItems = (kind) => Object.keys(latest[kind] ?? {}).length > 0;
  if (!latest.kinds.some(hasItems)) return 'Waiting for the second pass: figures need two samples.';
  if (!hasItems(definition.kind)) return definition.empty;
  return null;
}

const panels = new Map();
const grid = document.getElementById('charts');
let latest = null;

function render() {
  const definitions = panelDefinitions();
  const wanted = new Set(definitions.map((d) => d.id));
  for (const [id, panel] of panels) {
    if (!wanted.has(id)) {
      panel.element.remove();
      panels.delete(id);
    }
  }
  for (const definition of definitions) {
    let panel = panels.get(definition.id);
    if (!panel) {
      panel = new ChartPanel(definition);
      panels.set(definition.id, panel);
    }
    grid.append(panel.element); // keeps the page order
    const why = absence(definition, latest);
    if (why !== null) {
      panel.showMessage(why);
    } else {
      panel.draw(store.times, definition.series(), definition.none);
    }
  }
  const memory = latest?.memory?.[''];
  const total = memory?.total > 0 ? `of ${Math.round(memory.total / 2 ** 20)} MiB` : '';
  panels.get('memory')?.setNote(total);
}

const table = new ProcessTable({
  head: document.getElementById('process-head'),
  body: document.getElementById('process-rows'),
  count: document.getElementById('process-count'),
  empty: document.getElementById('process-empty'),
});

function showProcesses() {
  if (latest === null) {
    table.message('Waiting for the first pass…');
  } else if (!latest.kinds.includes('process')) {
    table.message('Processes are not sampled by this zefo-monitor.');
  } else if (Object.keys(latest.process ?? {}).length === 0) {
    table.message('Waiting for the second pass: figures need two samples.');
  } else {
    table.message(null);
  }
  table.update(latest?.process);
}

// --- The connection ------------------------------------------------------------------------

const status = document.getElementById('status');
const banner = document.getElementById('disconnected');
const bannerReason = document.getElementById('disconnected-reason');
let disconnectedSince = null;

function pollMs() {
  return Math.min(Math.max(store.periodMs, 250), 5000);
}

async function fetchJson(path) {
  const abort = new AbortController();
  const timer = setTimeout(() => abort.abort(), Math.max(4000, 2 * pollMs()));
  try {
    const response = await fetch(path, { cache: 'no-store', signal: abort.signal });
    if (response.status === 503) return null; // no pass yet
    if (!response.ok) throw new Error(`HTTP ${response.status} from ${path}`);
    return await response.json();
  } catch (error) {
    // fetch rejects with a TypeError when there is no connection at all.
    if (error.name === 'AbortError') throw new Error('no answer in time');
    if (error.name === 'TypeError') throw new Error('no connection to the board');
    throw error;
  } finally {
    clearTimeout(timer);
  }
}

function setConnected(connected, reason = '') {
  document.body.dataset.connection = connected ? 'live' : 'disconnected';
  banner.hidden = connected;
  if (connected) {
    disconnectedSince = null;
    const period = store.periodMs >= 1000 ? `${store.periodMs / 1000} s` : `${store.periodMs} ms`;
    status.textContent = latest
      ? `live · pass at ${clockTime(latest.update_time)} · every ${period}`
      : 'connected · waiting for the first pass';
  } else {
    disconnectedSince ??= Date.now();
    bannerReason.textContent = reason;
    status.textContent = `disconnected since ${clockTime(disconnectedSince)}`;
  }
}

async function poll() {
  let next = RETRY_MS;
  try {
    const pass = await fetchJson('/api/latest');
    if (pass !== null && pass.update_time < store.lastMs) reset(); // the board's clock went back
    if (pass !== null && pass.update_time > store.lastMs) {
      // Only the passes not held yet; the whole ring on first load or after a long break.
      const behind = (pass.update_time - store.lastMs) / 1000;
      const recent = store.lastMs > 0 && behind < store.windowSeconds;
      const query = recent ? `?seconds=${Math.ceil(behind) + 1}` : '';
      const history = await fetchJson('/api/history' + query);
      latest = pass;
      if (history !== null && append(history) > 0) {
        document.body.dataset.updates = String(Number(document.body.dataset.updates) + 1);
        document.body.dataset.last = String(store.lastMs);
      }
      render();
      showProcesses();
    } else if (latest === null) {
      render();
      showProcesses();
    }
    setConnected(true);
    next = pollMs();
  } catch (error) {
    setConnected(false, error.message);
  }
  setTimeout(poll, next);
}

document.getElementById('board').textContent = location.host;
new ResizeObserver(() => {
  for (const panel of panels.values()) panel.resize();
}).observe(grid);
render();
showProcesses();
poll();
