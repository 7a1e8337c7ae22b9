import { readdirSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import { gzipSync } from 'node:zlib';
import { expect, test } from 'vitest';

const kMostBytes = 150 * 1024;
const kMostAtFirst = 80 * 1024;

test('the built page stays small', () => {
  const folder = join(__dirname, '../../../package/html');
  const files = readdirSync(folder).map((file) => [file, gzipSync(readFileSync(join(folder, file))).length] as const);
  const bytes = files.reduce((sum, [, size]) => sum + size, 0);
  console.log(`the built page: ${bytes} bytes compressed`);
  expect(files.map(([file]) => file)).toContain('index.html');
  expect(bytes).toBeLessThan(kMostBytes);
  // What index.html names; everything else is fetched on demand.
  const first = readFileSync(join(folder, 'index.html'), 'utf8');
  const atFirst = files.filter(([file]) => file === 'index.html' || first.includes(`./${file}"`));
  expect(atFirst.map(([file]) => file)).toEqual(expect.arrayContaining(['index.html', 'index.js', 'style.css']));
  expect(atFirst.reduce((sum, [, size]) => sum + size, 0)).toBeLessThan(kMostAtFirst);
});
