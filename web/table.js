// The process table of the newest pass, sortable by any column: a click on a header sorts by it,
// a second click reverses the order.
import { MiB, byName, number } from './units.js';

const COLUMNS = [
  { key: 'pid', label: 'PID', numeric: true, get: (p) => p.pid, text: String },
  { key: 'name', label: 'Name', get: (p) => p.name },
  { key: 'zefo_name', label: 'Registered name', get: (p) => p.zefo_name },
  { key: 'state', label: 'State', get: (p) => p.state },
  // Shares of one core: a process keeping one core busy reads 100 %.
  {
    key: 'cpu',
    label: 'CPU %',
    numeric: true,
    get: (p) => (p.user ?? 0) + (p.system ?? 0),
    text: (v) => (Number.isFinite(v) ? v.toFixed(1) : '–'),
  },
  { key: 'rss', label: 'RSS MiB', numeric: true, get: (p) => p.VmRss / MiB },
  { key: 'fds', label: 'FDs', numeric: true, get: (p) => p.fd_count, text: String },
  { key: 'read', label: 'Read MB/s', numeric: true, get: (p) => p.io_read_bandwidth / 1e6 },
  { key: 'write', label: 'Write MB/s', numeric: true, get: (p) => p.io_write_bandwidth / 1e6 },
];

export class ProcessTable {
  constructor({ head, body, count, empty }) {
    this.body = body;
    this.count = count;
    this.empty = empty;
    this.rows = [];
    this.sortKey = 'cpu';
    this.descending = true;
    this.headers = new Map();
    for (const column of COLUMNS) {
      const th = document.createElement('th');
      th.dataset.column = column.key;
      if (column.numeric) th.className = 'number';
      const button = document.createElement('button');
      button.type = 'button';
      button.textContent = column.label;
      button.addEventListener('click', () => this.sortBy(column.key));
      th.append(button);
      head.append(th);
      this.headers.set(column.key, th);
    }
    this.markSort();
  }

  sortBy(key) {
    if (key === this.sortKey) {
      this.descending = !this.descending;
    } else {
      this.sortKey = key;
      // Figures largest first, names from A.
      this.descending = COLUMNS.find((c) => c.key === key).numeric === true;
    }
    this.markSort();
    this.render();
  }

  markSort() {
    for (const [key, th] of this.headers) {
      if (key === this.sortKey) {
        th.setAttribute('aria-sort', this.descending ? 'descending' : 'ascending');
      } else {
        th.removeAttribute('aria-sort');
      }
    }
  }

  // `processes`: the "process" object of a pass, items by pid; null when the pass has none.
  update(processes) {
    this.rows = Object.values(processes ?? {});
    this.render();
  }

  message(text) {
    this.empty.textContent = text;
    this.empty.hidden = text === null;
  }

  render() {
    const column = COLUMNS.find((c) => c.key === this.sortKey);
    const sign = this.descending ? -1 : 1;
    const value = (p) => column.get(p);
    const rows = [...this.rows].sort((a, b) => {
      const x = value(a);
      const y = value(b);
      let order;
      if (column.numeric) {
        order = (Number.isFinite(x) ? x : -Infinity) - (Number.isFinite(y) ? y : -Infinity);
      } else {
        order = byName(String(x ?? ''), String(y ?? ''));
      }
      return order !== 0 ? sign * order : a.pid - b.pid;
    });
    const fragment = document.createDocumentFragment();
    for (const p of rows) {
      const tr = document.createElement('tr');
      for (const c of COLUMNS) {
        const td = document.createElement('td');
        td.dataset.column = c.key;
        const v = c.get(p);
        // Names come from the board: always text, never markup.
        td.textContent = c.numeric ? (c.text ?? number)(v) : (v ?? '');
        if (c.numeric) td.className = 'number';
        if (c.key === 'name') {
          td.className = 'name';
          td.title = (p.cmd_line ?? '').replaceAll('\u0000', ' ').trim();
        }
        tr.append(td);
      }
      fragment.append(tr);
    }
    this.body.replaceChildren(fragment);
    this.count.textContent = this.rows.length > 0 ? `${this.rows.length} processes` : '';
  }
}
