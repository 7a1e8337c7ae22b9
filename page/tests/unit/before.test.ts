import { afterEach, beforeEach, expect, test, vi } from 'vitest';
import { Before } from '../../src/model/before';

vi.mock('../../src/camera', () => ({
  webService: 'http://camera.example/webservices.cgi',
  loginCheck: 'http://camera.example/icon.svg',
}));

let run: Record<string, unknown>;
let lines: object[];
let posted: URL[];
let kept: Map<string, string>;
let before: Before;

beforeEach(() => {
  vi.useFakeTimers({ now: new Date('2026-11-22T08:00:00.000Z') });
  run = {
    ended: 'killed',
    at: '2026-11-22T05:35:01.420Z',
    gap: 41,
    occupancy: 16,
    lost: [
      { entrance: 1, direction: 'in', class: 'Person', count: 3 },
      { entrance: 2, direction: 'in', class: 'Car', count: 1 },
      { entrance: 2, direction: 'out', class: 'Person', count: 2 },
    ],
  };
  lines = [{ kind: 'start', occupancy: 0 }];
  posted = [];
  kept = new Map();
  vi.stubGlobal('localStorage', {
    getItem: (key: string) => kept.get(key) ?? null,
    setItem: (key: string, value: string) => kept.set(key, value),
  });
  vi.stubGlobal('fetch', async (address: string, { method }: RequestInit = {}) => {
    const asked = new URL(address);
    if (method === 'POST') posted.push(asked);
    const action = asked.searchParams.get('action');
    if (action === 'occupancy_before') return new Response(JSON.stringify(run));
    if (action !== 'get_ledger') return new Response('');
    expect(asked.searchParams.get('from')).toBe('2026-11-22T05:35:41.420Z');
    return new Response(lines.map((line) => `${JSON.stringify(line)}\n`).join(''));
  });
  before = new Before();
});
afterEach(() => {
  vi.useRealTimers();
  vi.unstubAllGlobals();
});

test('what was inside is offered, with what no report has', async () => {
  await before.load();
  expect(before.inside).toBe(16);
  expect(before.start).toEqual(new Date('2026-11-22T05:35:42.420Z'));
  expect(before.lost).toEqual({ cameIn: 4, wentOut: 2 });
  await before.takeOver(18, 'as it was & is');
  expect(posted.map(({ searchParams }) => [...searchParams])).toEqual([
    [
      ['action', 'correct_occupancy'],
      ['to', '18'],
      ['remark', 'as it was & is'],
    ],
  ]);
  expect(before.inside).toBeNull();
});

test.each([
  ['nobody was inside', () => (run.occupancy = 0)],
  ['nothing is known', () => (run.occupancy = run.at = run.gap = null)],
  ['the start went on with them', () => (lines = [{ kind: 'start', occupancy: 16 }])],
  ['somebody has reset it', () => lines.push({ kind: 'reset' })],
  ['somebody has said how many there are', () => lines.push({ kind: 'corrected' })],
  ['it was long ago', () => vi.setSystemTime(new Date('2026-11-22T18:00:00.000Z'))],
])('nothing is offered where %s', async (_, change) => {
  change();
  await before.load();
  expect(before.inside).toBeNull();
});

test('who leaves it is not asked again, until the next restart', async () => {
  await before.load();
  before.leave();
  expect(before.inside).toBeNull();
  before = new Before();
  await before.load();
  expect(before.inside).toBeNull();
  kept.set('senvo-restart-left', 'another');
  await before.load();
  expect(before.inside).toBe(16);
});
