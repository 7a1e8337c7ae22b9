/* A browser for all tests, and a building for each worker: a leader and two followers on the drawn scene, each behind its web server. */

import { spawn } from 'node:child_process';
import {
  createWriteStream,
  existsSync,
  mkdirSync,
  mkdtempSync,
  readdirSync,
  readFileSync,
  rmSync,
  symlinkSync,
  writeFileSync,
} from 'node:fs';
import { tmpdir } from 'node:os';
import { join, resolve } from 'node:path';
import { chromium } from 'playwright-core';
import type { TestProject } from 'vitest/node';
import { kBuildings } from './buildings';

export interface Building {
  url: string;
  password: string;
  state: string;
  pid: number;
}

declare module 'vitest' {
  export interface ProvidedContext {
    /** Empty where the tests cannot run, for a reason that has been printed. */
    buildings: Building[];
    browser: string;
  }
}

const kPatience = 600_000;

/** The package with cameras that look four times a second: six of them leave the machine to the browser. */
function calmPackage(folder: string): string {
  const original = resolve(__dirname, '../../../package');
  mkdirSync(folder);
  for (const entry of readdirSync(original)) {
    if (entry !== 'manifest.json') symlinkSync(join(original, entry), join(folder, entry));
  }
  const manifest = readFileSync(join(original, 'manifest.json'), 'utf8');
  const calm = manifest.replace(/("name": "MainLoopTime",[^}]*"default": )"\d+"/, '$1"250"');
  if (calm === manifest) throw new Error('expected MainLoopTime in the manifest');
  writeFileSync(join(folder, 'manifest.json'), calm);
  return folder;
}

async function startBuilding(
  program: string,
  packaged: string,
  folder: string,
): Promise<{ building: Building; end: () => Promise<void> }> {
  const out = join(folder, 'out');
  const state = join(folder, 'state');
  mkdirSync(folder);
  const demo = spawn(program, ['--followers', '2', '--port', '0', '--state', state], {
    stdio: ['ignore', 'pipe', 'pipe'],
    env: { ...process.env, SENVO_PACKAGE: packaged },
  });
  demo.stdout.pipe(createWriteStream(out));
  demo.stderr.pipe(createWriteStream(join(folder, 'err')));
  const ended = new Promise<void>((resolve) => demo.once('exit', () => resolve()));
  const value = (key: string) =>
    new RegExp(`^${key}: (.*)\n`, 'm').exec(existsSync(out) ? readFileSync(out, 'utf8') : '')?.[1];
  const start = Date.now();
  while (!value('Follower 2')) {
    if (Date.now() - start > kPatience || demo.exitCode !== null) {
      throw new Error(
        `the demo did not start: ${readFileSync(out, 'utf8')}${readFileSync(join(folder, 'err'), 'utf8')}`,
      );
    }
    await new Promise((resolve) => setTimeout(resolve, 200));
  }
  const building = { url: value('url')!, password: value('password')!, state, pid: demo.pid! };
  const end = async () => {
    demo.kill('SIGCONT'); // a test that was ended may have stopped it
    demo.kill('SIGINT');
    await ended;
  };
  return { building, end };
}

export default async function setup(project: TestProject) {
  const program = process.env.DEMO_PROGRAM ?? join(__dirname, '../../../build/release/bin/senvo-demo');
  const executablePath = process.env.CHROMIUM ?? '/usr/bin/chromium-headless-shell';
  for (const needed of [program, executablePath]) {
    if (existsSync(needed)) continue;
    console.log(`Skipped: ${needed} is missing`);
    project.provide('buildings', []);
    project.provide('browser', '');
    return;
  }
  const folder = mkdtempSync(join(tmpdir(), 'senvo-page-'));
  const browser = await chromium.launchServer({
    executablePath,
    args: [
      '--headless',
      '--no-sandbox',
      '--disable-gpu',
      '--disable-quic',
      '--no-first-run',
      '--disable-background-networking',
      '--disable-component-update',
      '--disable-sync',
      '--lang=en-GB',
    ],
  });
  const packaged = calmPackage(join(folder, 'package'));
  const started = await Promise.all(
    Array.from({ length: kBuildings }, (_, i) => startBuilding(program, packaged, join(folder, String(i)))),
  );
  project.provide(
    'buildings',
    started.map(({ building }) => building),
  );
  project.provide('browser', browser.wsEndpoint());
  return async () => {
    await Promise.all([browser.close(), ...started.map(({ end }) => end())]);
    rmSync(folder, { recursive: true });
  };
}
