/* One building for all tests: a leader and two followers on the drawn scene, each behind its web server. */

import { spawn } from 'node:child_process';
import { createWriteStream, existsSync, mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import type { TestProject } from 'vitest/node';

declare module 'vitest' {
  export interface ProvidedContext {
    /** null where the tests cannot run, for a reason that has been printed. */
    building: { url: string; password: string; state: string; pid: number } | null;
  }
}

const kPatience = 180_000;

export default async function setup(project: TestProject) {
  const program = process.env.DEMO_PROGRAM ?? join(__dirname, '../../../build/release/bin/senvo-demo');
  const browser = process.env.CHROMIUM ?? '/usr/bin/chromium';
  for (const needed of [program, browser]) {
    if (existsSync(needed)) continue;
    console.log(`Skipped: ${needed} is missing`);
    project.provide('building', null);
    return;
  }
  const folder = mkdtempSync(join(tmpdir(), 'senvo-page-'));
  const out = join(folder, 'out');
  const state = join(folder, 'state');
  const demo = spawn(program, ['--followers', '2', '--port', '0', '--state', state], { stdio: ['ignore', 'pipe', 'pipe'] });
  demo.stdout.pipe(createWriteStream(out));
  demo.stderr.pipe(createWriteStream(join(folder, 'err')));
  const ended = new Promise<void>((resolve) => demo.once('exit', () => resolve()));
  const value = (key: string) => new RegExp(`^${key}: (.*)\n`, 'm').exec(existsSync(out) ? readFileSync(out, 'utf8') : '')?.[1];
  const start = Date.now();
  while (!value('Follower 2')) {
    if (Date.now() - start > kPatience || demo.exitCode !== null) {
      throw new Error(`the demo did not start: ${readFileSync(out, 'utf8')}${readFileSync(join(folder, 'err'), 'utf8')}`);
    }
    await new Promise((resolve) => setTimeout(resolve, 200));
  }
  project.provide('building', { url: value('url')!, password: value('password')!, state, pid: demo.pid! });
  return async () => {
    demo.kill('SIGINT');
    await ended;
    rmSync(folder, { recursive: true });
  };
}
