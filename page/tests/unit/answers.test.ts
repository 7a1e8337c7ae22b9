import { afterEach, beforeEach, expect, test, vi } from 'vitest';
import { AnswerStore, askAnswers } from '../../src/model/answers';

vi.mock('../../src/camera', () => ({
  webService: 'http://camera.example/webservices.cgi',
  loginCheck: 'http://camera.example/icon.svg',
}));

const kSteps = { quarter: 900, hour: 3600, day: 86_400 };
/** The camera's local time as if it were UTC. */
const at = (text: string) => Date.parse(`${text}Z`) / 1000;
const textOf = (local: number) => `${new Date(local * 1000).toISOString().slice(0, 19)}+01:00`;

/** A camera on a Sunday, at 14:10 of its clock, and what it counted: when, through which entrance, whether in, how many. */
const now = at('2026-11-22T14:15:00');
let counted: [string, number, 'in' | 'out', number][];
/** What of the time from a moment on was watched; before the first, the camera kept no ledger. */
let watched: [string, number | null][];

function answer(address: string): object {
  const query = new URL(address).searchParams;
  const step = kSteps[query.get('step') as keyof typeof kSteps];
  const to = query.has('to') ? at(query.get('to')!) : now;
  const from = query.has('from') ? at(query.get('from')!) : to - 86_400;
  const rows = [];
  for (let begin = from; begin < to; ) {
    const end = Math.min(to, (Math.floor(begin / step) + 1) * step);
    const counts = counted
      .filter(([time]) => at(time) >= begin && at(time) < end)
      .map(([, entrance, direction, count]) => ({
        direction,
        count,
        ...(query.get('by')!.includes('entrance') ? { entrance } : {}),
      }));
    const coverage = watched.filter(([time]) => at(time) <= begin).at(-1)?.[1] ?? null;
    rows.push({ begin: textOf(begin), end: textOf(end), coverage, counts });
    begin = end;
  }
  return { known_from: null, rows };
}

beforeEach(() => {
  counted = [
    ['2026-11-21T10:20:00', 1, 'in', 20],
    ['2026-11-21T10:50:00', 2, 'in', 15],
    ['2026-11-21T17:10:00', 2, 'in', 30],
    ['2026-11-21T17:20:00', 1, 'out', 60],
    ['2026-11-14T09:00:00', 1, 'in', 50], // the Saturday before
  ];
  watched = [['2026-01-01T00:00:00', 1]];
  vi.stubGlobal('fetch', async (address: string) => new Response(JSON.stringify(answer(address))));
});
afterEach(() => vi.unstubAllGlobals());

test('yesterday stands beside the same weekday before, with its busiest hour and entrance', async () => {
  const answers = await askAnswers();
  expect(answers.yesterday).toEqual({ begin: at('2026-11-21T00:00:00'), cameIn: 65, wentOut: 60, coverage: 1 });
  expect(answers.weekBefore?.cameIn).toBe(50);
  expect(answers.peak).toMatchObject({ begin: at('2026-11-21T10:00:00'), cameIn: 35 });
  expect(answers.busiest).toEqual({ entrance: 2, cameIn: 45 });
});

test('what is usual by now is of the same weekday until this time of day', async () => {
  counted.push(['2026-11-15T14:00:00', 1, 'in', 10], ['2026-11-15T14:20:00', 1, 'in', 500]);
  counted.push(['2026-11-08T08:00:00', 1, 'in', 30], ['2026-11-01T08:00:00', 1, 'in', 40]);
  counted.push(['2026-10-25T08:00:00', 1, 'in', 41], ['2026-10-18T08:00:00', 1, 'in', 900]);
  expect((await askAnswers()).usual).toEqual({ cameIn: 30, days: 4 }); // 121 in 4 days
});

test('days that nobody watched are no comparison', async () => {
  counted.push(['2026-11-15T08:00:00', 1, 'in', 10], ['2026-11-08T08:00:00', 1, 'in', 30]);
  watched.push(['2026-11-14T00:00:00', 0.89], ['2026-11-15T00:00:00', 0.5], ['2026-11-16T00:00:00', 0.95]);
  const answers = await askAnswers();
  expect(answers.weekBefore).toBeNull();
  expect(answers.usual).toEqual({ cameIn: 10, days: 3 }); // 8th: 30, 1st and October 25th: nobody, but watched
});

test('of the time before there was a ledger, days count on which anybody was counted', async () => {
  watched = [['2026-11-20T00:00:00', 1]];
  counted.push(['2026-11-08T08:00:00', 1, 'in', 30]);
  const answers = await askAnswers();
  expect(answers.weekBefore?.cameIn).toBe(50);
  expect(answers.usual).toEqual({ cameIn: 30, days: 1 });
});

test('where nobody came nothing is the busiest', async () => {
  counted = [];
  const answers = await askAnswers();
  expect(answers).toMatchObject({ peak: null, busiest: null, usual: { cameIn: 0, days: 4 } });
});

test('a single entrance is not called the busiest', async () => {
  counted = [['2026-11-21T10:20:00', 1, 'in', 20]];
  expect((await askAnswers()).busiest).toBeNull();
});

test.each([
  ['just after midnight today is the day that has begun', '2026-11-22T00:00:00', '2026-11-22T00:15:00', 65],
  ['just before midnight it is the day that ends', '2026-11-21T23:45:00', '2026-11-22T00:00:00', 7],
])('%s', async (_, begin, end, cameIn) => {
  counted.push(['2026-11-20T12:00:00', 1, 'in', 7]);
  vi.stubGlobal('fetch', async (address: string) => {
    const isNow = new URL(address).searchParams.get('step') === 'quarter';
    const quarter = { begin: textOf(at(begin)), end: textOf(at(end)), counts: [] };
    return new Response(JSON.stringify(isNow ? { rows: [quarter] } : answer(address)));
  });
  expect((await askAnswers()).yesterday.cameIn).toBe(cameIn);
});

test('what was known stays while the camera does not answer', async () => {
  const store = new AnswerStore();
  await store.load();
  vi.stubGlobal('fetch', async () => new Response('', { status: 503 }));
  await store.load();
  expect(store.trouble).toBe('restarting');
  expect(store.answers?.yesterday.cameIn).toBe(65);
});
