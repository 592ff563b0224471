// Figures as people read them. The JSON API gives percent, kHz for CPU frequencies, Hz for the
// BPU's, bytes, bytes per second and degrees Celsius; charts and the table show %, MHz, MB/s
// (10^6 bytes per second, as disk and network rates are usually quoted), GB/s for DDR (10^9),
// MiB (2^20 bytes) and °C: the same as zefo-monitor's line and terminal views.

export const MiB = 1024 * 1024;

export const UNITS = {
  percent: { suffix: '%', scale: 1 },
  mhzFromKhz: { suffix: ' MHz', scale: 1e-3 },
  mhzFromHz: { suffix: ' MHz', scale: 1e-6 },
  megabytesPerSecond: { suffix: ' MB/s', scale: 1e-6 },
  gigabytesPerSecond: { suffix: ' GB/s', scale: 1e-9 },
  mebibytes: { suffix: ' MiB', scale: 1 / MiB },
  celsius: { suffix: ' °C', scale: 1 },
};

// Fewer decimals for larger numbers: 1234, 123.4, 12.34, 0.123.
export function number(value) {
  if (value == null || !Number.isFinite(value)) return '–';
  const size = Math.abs(value);
  const digits = size >= 100 || size === 0 ? 0 : size >= 10 ? 1 : size >= 1 ? 2 : 3;
  return value.toFixed(digits);
}

// A value already scaled to `unit`, with the unit.
export function show(value, unit) {
  return value == null || !Number.isFinite(value) ? '–' : number(value) + unit.suffix;
}

const two = (n) => String(n).padStart(2, '0');

// "14:05:09" in 24-hour time, whatever the browser's locale.
export function clockTime(ms) {
  const d = new Date(ms);
  return `${two(d.getHours())}:${two(d.getMinutes())}:${two(d.getSeconds())}`;
}

// A time axis label: "14:05" where the ticks are whole minutes apart, else "14:05:09".
export function axisTime(seconds, stepSeconds) {
  const d = new Date(seconds * 1000);
  const minutes = `${two(d.getHours())}:${two(d.getMinutes())}`;
  return stepSeconds >= 60 && stepSeconds % 60 === 0 ? minutes : `${minutes}:${two(d.getSeconds())}`;
}

// "cpu2" before "cpu10".
export function byName(a, b) {
  return a.localeCompare(b, undefined, { numeric: true });
}
