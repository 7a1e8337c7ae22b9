import { readdirSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import { gzipSync } from 'node:zlib';
import { expect, test } from 'vitest';

const kMostBytes = 150 * 1024;

test('the built page stays small', () => {
  const folder = join(__dirname, '../../../package/html');
  const files = readdirSync(folder).map((file) => [file, gzipSync(readFileSync(join(folder, file))).length] as const);
  const bytes = files.reduce((sum, [, size]) => sum + size, 0);
  console.log(`the built page: ${bytes} bytes compressed`);
  expect(files.map(([file]) => file)).toContain('index.html');
  expect(bytes).toBeLessThan(kMostBytes);
});
