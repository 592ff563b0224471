// Bundles the dashboard into one self-contained HTML page: dashboard.js with its modules and
// uPlot, and dashboard.css with uPlot's stylesheet, minified and put inline into index.html.
//
//   node build.mjs --out FILE [--node-modules DIR]
//
// DIR is where `npm ci` installed esbuild and uPlot (default: node_modules beside this file);
// the build keeps it outside the source tree.
import { mkdir, readFile, writeFile } from 'node:fs/promises';
import { createRequire } from 'node:module';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const here = path.dirname(fileURLToPath(import.meta.url));
const args = process.argv.slice(2);
const option = (name, fallback) => {
  const at = args.indexOf(name);
  return at >= 0 && at + 1 < args.length ? args[at + 1] : fallback;
};
const out = option('--out', null);
const nodeModules = path.resolve(option('--node-modules', path.join(here, 'node_modules')));
if (out === null) {
  console.error('usage: node build.mjs --out FILE [--node-modules DIR]');
  process.exit(2);
}

const require = createRequire(path.join(path.dirname(nodeModules), 'package.json'));
const esbuild = require('esbuild');

// uPlot's copyright notice, which minifying would drop: its file's leading comment.
const uplotSource = await readFile(require.resolve('uplot/dist/uPlot.esm.js'), 'utf8');
const notice = uplotSource.match(/^\/\*\*?[\s\S]*?\*\//)?.[0] ?? '';

async function bundle(entry, loader) {
  const result = await esbuild.build({
    entryPoints: [path.join(here, entry)],
    bundle: true,
    minify: true,
    write: false,
    format: loader === 'js' ? 'esm' : undefined,
    target: ['chrome100', 'firefox100', 'safari15'],
    nodePaths: [nodeModules],
    banner: loader === 'js' ? { js: notice } : undefined,
    logLevel: 'warning',
  });
  return result.outputFiles[0].text;
}

// Inside <script> and <style> an end tag or a comment opener in the text would end the element
// early; in JavaScript strings and CSS "\/" and "\!" mean the same characters.
const inline = (text, tag) =>
  text.replace(new RegExp(`</(${tag})`, 'gi'), '<\\/$1').replaceAll('<!--', '<\\!--');

const styleSlot = '<style>/* dashboard.css */</style>';
const scriptSlot = '<script type="module">/* dashboard.js */</script>';
const [js, css, html] = await Promise.all([
  bundle('dashboard.js', 'js'),
  bundle('dashboard.css', 'css'),
  readFile(path.join(here, 'index.html'), 'utf8'),
]);
if (!html.includes(styleSlot) || !html.includes(scriptSlot)) {
  console.error('build.mjs: index.html lacks the style or script placeholder');
  process.exit(1);
}
const page = html
  .replace(styleSlot, () => `<style>${inline(css, 'style')}</style>`)
  .replace(scriptSlot, () => `<script type="module">${inline(js, 'script')}</script>`);
await mkdir(path.dirname(path.resolve(out)), { recursive: true });
await writeFile(out, page);
console.log(`build.mjs: ${out}: ${page.length} bytes (script ${js.length}, styles ${css.length})`);
