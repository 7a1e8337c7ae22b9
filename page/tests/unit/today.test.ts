import { afterEach, beforeEach, expect, test, vi } from 'vitest';
import { readToday, Today } from '../../src/model/today';

vi.mock('../../src/camera', () => ({
  webService: 'http://camera.example/webservices.cgi',
  loginCheck: 'http://camera.example/icon.svg',
}));

const day = (...counts: [number, string, number][]) => ({
  counts: counts.map(([entrance, direction, count]) => ({ entrance, direction, count })),
});
const yesterday = day([1, 'in', 70], [1, 'out', 60]);

let answers: (object | number)[];
let asked: URL[];
let today: Today;

beforeEach(() => {
  vi.useFakeTimers({ now: new Date(Date.UTC(2026, 10, 22, 7)) });
  asked = [];
  vi.stubGlobal('fetch', async (address: string) => {
    asked.push(new URL(address));
    const answer = answers.shift();
    return typeof answer === 'number'
      ? new Response('', { status: answer })
      : new Response(JSON.stringify(answer), { status: answer && 'job' in answer ? 202 : 200 });
  });
  today = new Today();
});
afterEach(() => {
  vi.useRealTimers();
  vi.unstubAllGlobals();
});
const later = (milliseconds: number) => vi.advanceTimersByTimeAsync(milliseconds);

test('the newest day is the one of today', () => {
  expect([...readToday({ rows: [yesterday, day([1, 'in', 3], [1, 'out', 1], [3, 'out', 2])] })]).toEqual([
    [1, { cameIn: 3, wentOut: 1 }],
    [3, { cameIn: 0, wentOut: 2 }],
  ]);
  expect(readToday({ rows: [yesterday, day()] }).size).toBe(0);
});

test('the camera says which day it is, for whatever zone it hangs in', async () => {
  answers = [{ rows: [yesterday, day([1, 'in', 3])] }];
  void today.load();
  await later(1);
  expect(today.counts!.get(1)).toEqual({ cameIn: 3, wentOut: 0 });
  const question = asked[0].searchParams;
  expect([question.get('from'), question.get('to'), question.get('zone'), question.get('step')]).toEqual([
    '2026-11-20T07:00:00.000Z',
    null,
    null,
    'day',
  ]);
});

test('what takes the camera long is asked for again', async () => {
  answers = [{ job: 7 }, { job: 7 }, { rows: [day([2, 'out', 5])] }];
  void today.load();
  await later(1000);
  expect(today.counts!.get(2)).toEqual({ cameIn: 0, wentOut: 5 });
  expect(asked.slice(1).map((address) => address.search)).toEqual(Array(2).fill('?action=ledger_answer&job=7'));
});

test('trouble is told, and the counts of before stay', async () => {
  answers = [{ rows: [day([1, 'in', 3])] }, 503, { rows: 'none' }];
  void today.load();
  await later(5000);
  void today.load();
  await later(5000);
  expect([today.trouble, today.counts!.get(1)!.cameIn]).toEqual(['restarting', 3]);
  void today.load();
  await later(5000);
  expect(today.trouble).toBe('refused');
});

test('many who come at once are one more question', async () => {
  answers = [1, 2, 3, 4].map((count) => ({ rows: [day([1, 'in', count])] }));
  for (let i = 0; i < 10; ++i) void today.load();
  await later(1);
  expect([asked.length, today.counts!.get(1)!.cameIn]).toEqual([1, 1]);
  await later(60_000);
  expect([asked.length, today.counts!.get(1)!.cameIn]).toEqual([2, 2]);
});

test('what takes the camera long is asked for less often', async () => {
  answers = [...Array(10).fill({ job: 7 }), { rows: [day([2, 'out', 5])] }, { rows: [day([2, 'out', 6])] }];
  void today.load();
  await later(3000);
  expect(today.counts!.get(2)!.wentOut).toBe(5);
  void today.load();
  await later(50_000);
  expect(asked.length).toBe(11);
  await later(20_000);
  expect(today.counts!.get(2)!.wentOut).toBe(6);
});
