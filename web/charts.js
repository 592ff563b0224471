// One chart panel: a card with a title, a uPlot chart of time series, and a message in place of
// the chart when there is nothing to draw (no such device on the board, no second pass yet).
import uPlot from 'uplot';

import { axisTime, clockTime, show } from './units.js';

// Colours that stay apart on white, also for the usual kinds of colour blindness.
const PALETTE = [
  '#1f77b4', '#ff7f0e', '#2ca02c', '#d62728', '#9467bd',
  '#8c564b', '#e377c2', '#7f7f7f', '#bcbd22', '#17becf',
];

export function colour(index) {
  return PALETTE[index % PALETTE.length];
}

const HEIGHT = 190;

// Tick labels with the decimals their spacing needs: 0, 500, 1000 MHz; 0.00, 0.25, 0.50 MB/s.
function ticks(splits, unit) {
  const step = splits.length > 1 ? Math.abs(splits[1] - splits[0]) : 1;
  let digits = 0;
  while (digits < 6 && step > 0) {
    const scaled = step * 10 ** digits;
    if (Math.abs(scaled - Math.round(scaled)) <= 1e-6 * scaled) break;
    digits += 1;
  }
  return splits.map((v) => v.toFixed(digits) + unit.suffix);
}

// The y axis as wide as its longest label ("1500 MHz"), measured with the axis's own font.
function axisSize(u, values, axisIndex, cycle) {
  const axis = u.axes[axisIndex];
  if (cycle > 1) return axis._size;
  let size = axis.ticks.size + axis.gap;
  const longest = (values ?? []).reduce((a, v) => (v.length > a.length ? v : a), '');
  if (longest !== '') {
    u.ctx.font = axis.font[0];
    size += u.ctx.measureText(longest).width / devicePixelRatio;
  }
  return Math.ceil(size) + 2;
}

export class ChartPanel {
  // `unit` from units.js; `zero`: the y axis starts at 0; `max`: a fixed top (100 for shares).
  constructor({ id, title, unit, zero = true, max = null }) {
    this.unit = unit;
    this.zero = zero;
    this.max = max;
    this.plot = null;
    this.signature = '';

    this.element = document.createElement('section');
    this.element.className = 'card';
    this.element.dataset.panel = id;
    const heading = document.createElement('h2');
    heading.textContent = title + ' ';
    this.note = document.createElement('span');
    this.note.className = 'note';
    heading.append(this.note);
    this.message = document.createElement('p');
    this.message.className = 'empty';
    this.chart = document.createElement('div');
    this.chart.className = 'chart';
    this.element.append(heading, this.message, this.chart);
    this.showMessage('Waiting for the first pass…');
  }

  setNote(text) {
    this.note.textContent = text;
  }

  showMessage(text) {
    this.message.textContent = text;
    this.message.hidden = false;
    this.chart.hidden = true;
    this.element.dataset.state = 'empty';
  }

  // `times` in seconds; `series`: [{ label, values (already in the panel's unit), colour, dash }];
  // `none`: what to say when there are no series.
  draw(times, series, none = 'No figures yet.') {
    if (series.length === 0) {
      this.showMessage(none);
      return;
    }
    this.message.hidden = true;
    this.chart.hidden = false;
    const data = [times, ...series.map((s) => s.values)];
    const signature = series.map((s) => s.label).join('\n');
    if (this.plot === null || signature !== this.signature) {
      this.plot?.destroy();
      this.plot = new uPlot(this.options(series), data, this.chart);
      this.chart.plot = this.plot;  // for the browser test, which measures the axis labels
      this.signature = signature;
    } else {
      this.plot.setData(data);
    }
    // Without a cursor on the chart, the legend shows the newest figures.
    if (this.plot.cursor.idx == null && times.length > 0) {
      this.plot.setLegend({ idx: times.length - 1 });
    }
    this.element.dataset.state = 'live';
    this.element.dataset.series = String(series.length);
    this.element.dataset.points = String(
      times.filter((_, i) => series.some((s) => s.values[i] != null)).length,
    );
  }

  resize() {
    if (this.plot !== null && !this.chart.hidden) {
      this.plot.setSize({ width: this.width(), height: HEIGHT });
    }
  }

  width() {
    return Math.max(200, this.element.clientWidth - 26);
  }

  options(series) {
    const unit = this.unit;
    const top = this.max;
    const zero = this.zero;
    return {
      width: this.width(),
      height: HEIGHT,
      cursor: { drag: { x: false, y: false } },
      // Read and write (receive and transmit) share a colour: the second is dashed, and its
      // legend marker is a dashed hollow square where the first has a filled one.
      legend: {
        live: true,
        markers: {
          dash: (u, i) => (series[i - 1]?.dash ? 'dashed' : 'solid'),
          fill: (u, i) => (series[i - 1]?.dash ? 'transparent' : series[i - 1]?.colour),
        },
      },
      scales: {
        x: { time: true },
        y: {
          range: (u, min, max) => {
            if (top !== null) return [0, top];
            if (min == null || max == null) return [0, 1];
            if (zero) return [0, max > 0 ? max * 1.15 : 1];
            const pad = Math.max((max - min) * 0.15, 1);
            return [min - pad, max + pad];
          },
        },
      },
      axes: [
        {
          stroke: '#667085',
          grid: { stroke: '#eef0f3' },
          ticks: { stroke: '#e3e6eb' },
          // One line of 24-hour time per tick, at least 80 px apart so that "14:05:09" labels
          // never touch.
          space: 80,
          values: (u, splits, axisIndex, space, step) => splits.map((t) => axisTime(t, step)),
        },
        {
          stroke: '#667085',
          size: axisSize,
          grid: { stroke: '#eef0f3' },
          ticks: { stroke: '#e3e6eb' },
          values: (u, splits) => ticks(splits, unit),
        },
      ],
      series: [
        { value: (u, t) => (t == null ? '–' : clockTime(t * 1000)) },
        ...series.map((s) => ({
          label: s.label,
          stroke: s.colour,
          width: s.width ?? 1.5,
          dash: s.dash,
          points: { show: false },
          value: (u, v) => show(v, unit),
        })),
      ],
    };
  }
}
