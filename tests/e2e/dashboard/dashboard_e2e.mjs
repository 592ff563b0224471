// The dashboard in a real browser: zefo-monitor --listen over a simulated board, Debian's
// chromium driven headless by playwright-core. Waits for two live updates, checks that every
// chart panel has data and that the process table sorts, that at 1440 and 400 px the page does
// not overflow sideways and the time axes' 24-hour labels do not overlap, saves a screenshot at
// each width (the narrow one beside the other, "-narrow"), then stops the
// server, expects the page to say it is disconnected, starts it again on the same port and
// expects the page to resume. Last, over a board without BPU, DDR devices, thermal zones and
// cpufreq, expects those panels to say so.
//
//   node dashboard_e2e.mjs --monitor BIN --board-sim SCRIPT --node-modules DIR --screenshot PNG
//                          [--settle SECONDS] [--chromium PATH]
//
// --settle waits that long before the screenshot, for fuller charts (docs/dashboard.png).
import { spawn } from 'node:child_process';
import { mkdir, mkdtemp, rm, writeFile } from 'node:fs/promises';
import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

const args = process.argv.slice(2);
const option = (name, fallback) => {
  const at = args.indexOf(name);
  return at >= 0 && at + 1 < args.length ? args[at + 1] : fallback;
};
const [monitor, boardSim, screenshot] = ['--monitor', '--board-sim', '--screenshot'].map(option);
const nodeModules = path.resolve(option('--node-modules', 'node_modules'));
if (!monitor || !boardSim || !screenshot) {
  console.error('usage: node dashboard_e2e.mjs --monitor BIN --board-sim SCRIPT ' +
    '--node-modules DIR --screenshot PNG [--settle SECONDS] [--chromium PATH]');
  process.exit(2);
}
const { chromium } = createRequire(path.join(path.dirname(nodeModules), 'package.json'))(
  'playwright-core',
);

const PERIOD_MS = 1000;
// Every chart panel the simulated board (2 BPU cores, 2 DDR devices) fills.
const PANELS = [
  'cpu-load', 'cpu-frequency', 'bpu-load', 'bpu-frequency', 'memory', 'ddr-devices',
  'ddr-ports-ddr0', 'ddr-ports-ddr1', 'disk', 'network', 'temperature',
];

const children = [];
const log = (...words) => console.log('dashboard-e2e:', ...words);

// Starts a program; resolves with it once `ready` matches a line of its output (stdout or
// stderr), with the match.
function start(command, argv, ready, what) {
  const child = spawn(command, argv, { stdio: ['ignore', 'pipe', 'pipe'] });
  children.push(child);
  let output = '';
  return new Promise((resolve, reject) => {
    const timer = setTimeout(
      () => reject(new Error(`${what} not ready in 30 s:\n${output}`)), 30000);
    const look = (chunk) => {
      output += chunk;
      const match = output.match(ready);
      if (match) {
        clearTimeout(timer);
        resolve({ child, match });
      }
    };
    child.stdout.setEncoding('utf8').on('data', look);
    child.stderr.setEncoding('utf8').on('data', look);
    child.on('exit', (code, signal) => {
      clearTimeout(timer);
      reject(new Error(`${what} ended (${code ?? signal}) before it was ready:\n${output}`));
    });
  });
}

async function stop(child) {
  if (child.exitCode !== null || child.signalCode !== null) return;
  const ended = new Promise((resolve) => child.once('exit', resolve));
  child.kill('SIGTERM');
  await Promise.race([ended, sleep(10000).then(() => child.kill('SIGKILL'))]);
  await ended;
}

function check(condition, message) {
  if (!condition) throw new Error(message);
}

// The page's own count of updates that brought new passes.
const updates = (page) => page.evaluate(() => Number(document.body.dataset.updates));

async function waitForUpdates(page, count, seconds) {
  await page.waitForFunction((n) => Number(document.body.dataset.updates) >= n, count, {
    timeout: seconds * 1000,
  });
}

async function checkPanels(page) {
  const states = await page.$$eval('[data-panel]', (panels) => panels.map((p) => ({
    id: p.dataset.panel, ...p.dataset, canvas: p.querySelector('canvas') !== null,
    text: p.querySelector('.empty')?.textContent,
  })));
  for (const id of PANELS) {
    const s = states.find((state) => state.id === id);
    check(s?.state === 'live' && s.canvas, `panel ${id} has no chart: ${s?.text ?? 'none'}`);
    check(s.series > 0 && s.points >= 2, `panel ${id}: ${s.series} series, ${s.points} points`);
  }
  log(`${states.length} panels live:`, states.map((s) => `${s.id} (${s.series})`).join(', '));
}

// Clicks a column's header; returns the column's values once it says it sorts as `expected`.
async function sortBy(page, column, expected) {
  const head = `#process-head th[data-column="${column}"]`;
  await page.click(`${head} button`);
  const sort = await page.getAttribute(head, 'aria-sort');
  check(sort === expected, `${column}: aria-sort is ${sort}, expected ${expected}`);
  const index = await page.$$eval('#process-head th', (ths, key) =>
    ths.findIndex((th) => th.dataset.column === key), column);
  return page.$$eval('#process-rows tr', (rows, i) => rows.map((tr) => tr.children[i].textContent),
    index);
}

// No horizontal scrolling, every time axis in 24-hour "HH:MM" or "HH:MM:SS" labels that do not
// overlap (uPlot draws them on a canvas: measured with the axis's own font), and at narrow
// widths the process table still shows PID, name, CPU and memory.
async function checkLayout(page, width) {
  await page.setViewportSize({ width, height: 900 });
  await page.waitForTimeout(PERIOD_MS * 1.5);  // a redraw at the new size
  const result = await page.evaluate(() => {
    const problems = [];
    const root = document.documentElement;
    if (root.scrollWidth > window.innerWidth) {
      problems.push(`page ${root.scrollWidth} px wide in a ${window.innerWidth} px window`);
    }
    let axes = 0;
    for (const chart of document.querySelectorAll('.chart')) {
      const u = chart.plot;
      if (!u || chart.hidden) continue;
      const axis = u.axes[0];
      const labels = axis._values ?? [];
      const splits = axis._splits ?? [];
      u.ctx.font = axis.font[0];
      let right = -Infinity;
      axes += 1;
      labels.forEach((label, i) => {
        if (label == null) return;
        if (!/^\d\d:\d\d(:\d\d)?$/.test(label)) problems.push(`axis label "${label}"`);
        const half = u.ctx.measureText(label).width / devicePixelRatio / 2;
        const x = u.valToPos(splits[i], 'x');
        if (x - half < right + 2) problems.push(`axis labels overlap at "${label}"`);
        right = x + half;
      });
      if (chart.getBoundingClientRect().right > window.innerWidth + 1) {
        problems.push(`a chart reaches past the window: ${chart.closest('[data-panel]').dataset.panel}`);
      }
    }
    const shown = [...document.querySelectorAll('thead th')]
      .filter((th) => getComputedStyle(th).display !== 'none')
      .map((th) => th.dataset.column);
    return { problems, axes, shown };
  });
  check(result.axes >= PANELS.length, `only ${result.axes} time axes at ${width} px`);
  check(result.problems.length === 0, `at ${width} px: ${result.problems.join('; ')}`);
  for (const column of ['pid', 'name', 'cpu', 'rss']) {
    check(result.shown.includes(column), `no ${column} column at ${width} px: ${result.shown}`);
  }
  log(`${width} px: no overflow, ${result.axes} time axes without overlapping labels,`,
    `columns ${result.shown.join(' ')}`);
}

async function checkTable(page) {
  const rows = await page.$$eval('#process-rows tr', (trs) => trs.length);
  check(rows > 0, 'the process table has no rows');
  // Numbers largest first on the first click, then reversed; names from A on the first.
  const down = (a, b) => Number(b) - Number(a);
  const byName = (a, b) => a.localeCompare(b, undefined, { numeric: true });
  for (const [column, order, compare] of [['pid', 'descending', down],
    ['pid', 'ascending', (a, b) => -down(a, b)], ['name', 'ascending', byName],
    ['zefo_name', 'ascending', byName], ['cpu', 'descending', down]]) {
    const values = await sortBy(page, column, order);
    check(values.every((v, i) => i === 0 || compare(values[i - 1], v) <= 0),
      `${column} not ${order}: ${values.slice(0, 10)}`);
    check(column !== 'zefo_name' || values.at(-1) === 'board-sim', `registered: ${values}`);
  }
  log(`process table: ${rows} rows, sorts by PID, name, registered name and CPU`);
}

async function main() {
  const work = await mkdtemp(path.join(os.tmpdir(), 'zefo-dashboard-e2e-'));
  let browser = null;
  try {
    const board = path.join(work, 'board');
    const sim = await start(boardSim,
      [board, '--period', '500', '--bpu-cores', '2', '--ddr-devices', '2'],
      /board-sim: ready/, 'board-sim');
    // board-sim registers as the platform's software does, so the table has a registered name.
    const registration = path.join(work, 'reg', String(sim.child.pid));
    await mkdir(registration, { recursive: true });
    await writeFile(path.join(registration, 'name'), 'board-sim\n');
    await writeFile(path.join(registration, 'pid'), `${sim.child.pid}\n`);
    const serve = (listen, root = board) => start(monitor, ['--listen', listen, '--period',
      String(PERIOD_MS), '--sysfs', path.join(root, 'sys'), '--devfs', path.join(root, 'dev'),
      '--regdir', path.join(work, 'reg')], /dashboard at http:\/\/127\.0\.0\.1:(\d+)\//,
      `zefo-monitor on ${listen} over ${root}`);
    let server = await serve('127.0.0.1:0');
    const port = server.match[1];
    const url = `http://127.0.0.1:${port}/`;
    log('zefo-monitor serves', url);

    browser = await chromium.launchPersistentContext(path.join(work, 'profile'), {
      executablePath: option('--chromium', '/usr/bin/chromium'),
      // playwright adds --headless, --no-sandbox and the switches that keep chromium off the
      // network (no first-run, background networking, component updates or sync) itself.
      headless: true,
      args: ['--disable-gpu', '--disable-quic'],
      viewport: { width: 1440, height: 900 },
    });
    const page = browser.pages()[0] ?? (await browser.newPage());
    const problems = [];
    page.on('pageerror', (error) => problems.push(String(error)));
    page.on('console', (message) => {
      if (message.type() === 'error') problems.push(message.text());
    });
    // No request may leave the board: everything comes from zefo-monitor itself.
    page.on('request', (request) => request.url().startsWith(url) ||
      problems.push(`request outside the board: ${request.url()}`));

    await page.goto(url);
    await page.waitForFunction(() => document.body.dataset.connection === 'live');
    // Two updates after the page's first.
    await waitForUpdates(page, 1, 30);
    const first = await updates(page);
    await waitForUpdates(page, first + 2, 30);
    await checkPanels(page);
    await checkTable(page);
    await sleep(Number(option('--settle', '0')) * 1000);
    for (const [width, shot] of [[1440, screenshot], [400, screenshot.replace(/(\.png)?$/,
      '-narrow.png')], [1440, null]]) {
      await checkLayout(page, width);
      if (shot) await page.screenshot({ path: shot, fullPage: true });
    }

    // The connection drops: the page says so, and resumes once zefo-monitor is back.
    const before = Number(await page.evaluate(() => document.body.dataset.last));
    await stop(server.child);
    await page.waitForFunction(() => document.body.dataset.connection === 'disconnected',
      null, { timeout: 30000 });
    check(await page.isVisible('#disconnected'), 'no disconnected notice');
    log('disconnected:', (await page.textContent('#disconnected')).replace(/\s+/g, ' ').trim());
    server = await serve(`127.0.0.1:${port}`);
    await page.waitForFunction(
      (t) => document.body.dataset.connection === 'live' && Number(document.body.dataset.last) > t,
      before, { timeout: 30000 });
    check(!(await page.isVisible('#disconnected')), 'the disconnected notice stayed');
    await waitForUpdates(page, (await updates(page)) + 1, 30);
    await checkPanels(page);
    log('resumed after the restart');

    // A board without BPU, DDR devices, thermal zones and cpufreq: those panels say so.
    await stop(server.child);
    const bare = path.join(work, 'bare');
    server = await serve(`127.0.0.1:${port}`, bare);
    await page.reload();
    await page.waitForFunction(
      () => document.querySelector('[data-panel="cpu-load"]')?.dataset.state === 'live',
      null, { timeout: 30000 });
    const [bpu, ddr] = ['This board has no BPU.', 'This board has no DDR monitor devices.'];
    for (const [id, text] of Object.entries({
      'bpu-load': bpu, 'bpu-frequency': bpu, 'ddr-devices': ddr, 'ddr-ports': ddr,
      temperature: 'This board has no thermal zones.',
      'cpu-frequency': 'This board does not report CPU frequencies (no cpufreq).',
    })) {
      const [state, shown] = await page.$eval(`[data-panel="${id}"]`,
        (p) => [p.dataset.state, p.querySelector('.empty').textContent]);
      check(state === 'empty' && shown === text, `panel ${id} without the hardware: ${shown}`);
    }
    check(await page.$$eval('#process-rows tr', (trs) => trs.length) > 0, 'no bare processes');
    log('a board without BPU, DDR, zones and cpufreq: those panels say so');

    // Chromium reports the failed polls while the server was down; nothing else may fail.
    const unexpected = problems.filter(
      (p) => !/Failed to load resource|ERR_CONNECTION_REFUSED/.test(p));
    check(unexpected.length === 0, `page errors:\n${unexpected.join('\n')}`);
    log('passed');
  } finally {
    await browser?.close().catch(() => {});
    for (const child of children.reverse()) await stop(child).catch(() => {});
    await rm(work, { recursive: true, force: true });
  }
}

main().catch((error) => {
  console.error('dashboard-e2e: FAILED:', error.message);
  process.exitCode = 1;
});
