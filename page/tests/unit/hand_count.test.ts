import { afterEach, beforeEach, expect, test, vi } from 'vitest';
import { HandCount, measureAhead } from '../../src/model/hand_count';
import { askRecords, HandRecords } from '../../src/model/hand_records';

vi.mock('../../src/camera', () => ({
  webService: 'http://camera.example/webservices.cgi',
  loginCheck: 'http://camera.example/icon.svg',
}));

/** The camera's clock is ahead of this device's. */
const kAhead = 90_000;
const kStart = Date.UTC(2026, 10, 22, 9);
const textOf = (time: number) => new Date(time).toISOString();
const later = (milliseconds: number) => vi.advanceTimersByTimeAsync(milliseconds);

let kept: Map<string, string>;
let handedIn: Record<string, unknown>[];
let delays: number[];
let isAway: boolean;
let ledger: object[];

/** How many lines the camera tells at once. */
const kPage = 3;

async function camera(address: string, { body, method }: RequestInit = {}): Promise<Response> {
  const query = new URL(address).searchParams;
  if (isAway) return new Response('', { status: 503 });
  if (query.get('action') === 'get_about') {
    const delay = delays.shift();
    if (delay) await new Promise((resolve) => setTimeout(resolve, delay));
    const time = textOf(Date.now() + kAhead);
    if (delay) await new Promise((resolve) => setTimeout(resolve, delay * 3)); // late on its way back
    return new Response(JSON.stringify({ time }));
  }
  if (method === 'POST') {
    handedIn.push(JSON.parse(body as string) as Record<string, unknown>);
    return new Response('');
  }
  const first = Number(/:(\d+)$/.exec(query.get('since') ?? ':0')![1]);
  const kinds = query.get('kinds')!.split(',');
  const lines = ledger
    .map((line, i) => ({ seq: i + 1, epoch: 'e', ...(line as { kind: string; t: string }) }))
    .slice(first, first + kPage);
  const wanted = lines.filter(({ kind, t }) => kinds.includes(kind) && t >= query.get('from')!);
  return new Response(wanted.map((line) => `${JSON.stringify(line)}\n`).join(''), {
    headers: { 'X-Ledger-Next': `e:${first + lines.length}`, 'X-Ledger-End': `e:${ledger.length}` },
  });
}

beforeEach(() => {
  vi.useFakeTimers({ now: kStart });
  kept = new Map();
  handedIn = [];
  delays = [];
  isAway = false;
  ledger = [];
  vi.stubGlobal('localStorage', {
    getItem: (key: string) => kept.get(key) ?? null,
    setItem: (key: string, value: string) => kept.set(key, value),
    removeItem: (key: string) => kept.delete(key),
  });
  vi.stubGlobal('fetch', vi.fn(camera));
});
afterEach(() => {
  vi.useRealTimers();
  vi.unstubAllGlobals();
});

async function begun(minutes = 10): Promise<HandCount> {
  const counting = new HandCount();
  await counting.begin(minutes, 'lamps', 'rain');
  return counting;
}

test('the clock is measured by the answer that came soonest', async () => {
  delays = [400, 20, 800, 400, 400];
  const ahead = measureAhead();
  await later(10_000);
  // 20 ms there and 60 ms back: told as if it were 40 and 40.
  expect(await ahead).toBe(kAhead - 20);
});

test('taps carry the time of the camera', async () => {
  const counting = await begun();
  await later(5000);
  counting.tap(2, -1);
  await later(1500);
  counting.tap(1, 1);
  await later(600_000);
  expect(counting.isOn).toBe(false);
  await counting.handIn();
  const begin = kStart + kAhead;
  expect(handedIn).toEqual([
    {
      begin: textOf(begin),
      end: textOf(begin + 600_000),
      phone_offset: kAhead,
      light: 'lamps',
      remark: 'rain',
      taps: [
        { t: textOf(begin + 5000), entrance: 2, direction: 'out' },
        { t: textOf(begin + 6500), entrance: 1, direction: 'in' },
      ],
    },
  ]);
  expect(counting.count).toBeNull();
});

test('the last tap can be taken back, again and again', async () => {
  const counting = await begun();
  for (const entrance of [1, 2, 3]) counting.tap(entrance, 1);
  counting.undo();
  counting.undo();
  expect(counting.count!.taps.map(({ entrance }) => entrance)).toEqual([1]);
  counting.undo();
  counting.undo();
  expect(counting.count!.taps).toEqual([]);
});

test('once the time is over nothing is tapped any more, and whoever watches is told', async () => {
  const counting = await begun(1);
  const told = vi.fn();
  counting.watch(told);
  await later(59_999);
  expect([told.mock.calls.length, counting.isOn]).toEqual([0, true]);
  await later(1);
  expect([told.mock.calls.length, counting.isOn]).toEqual([1, false]);
  counting.tap(1, 1);
  expect(counting.count!.taps).toEqual([]);
});

test('it is not ended before its first minute', async () => {
  const counting = await begun();
  await later(59_000);
  counting.finish();
  expect(counting.isOn).toBe(true);
  await later(1000);
  counting.finish();
  expect(counting.isOn).toBe(false);
  await counting.handIn();
  expect(handedIn[0].end).toBe(textOf(kStart + kAhead + 60_000));
});

test('a page that is read anew goes on', async () => {
  const counting = await begun();
  counting.tap(3, -1);
  await later(2000);
  const again = new HandCount();
  expect(again.isOn).toBe(true);
  again.tap(1, 1);
  await later(600_000);
  await again.handIn();
  expect(handedIn[0].taps).toHaveLength(2);
  expect(new HandCount().count).toBeNull();
});

test('what the camera does not take stays until it does', async () => {
  const counting = await begun(1);
  counting.tap(1, 1);
  await later(60_000);
  isAway = true;
  await counting.handIn();
  expect([counting.trouble, counting.count!.taps.length]).toEqual(['restarting', 1]);
  isAway = false;
  await counting.handIn();
  expect([counting.trouble, counting.count, handedIn.length]).toEqual([null, null, 1]);
});

test('without the time of the camera it does not begin', async () => {
  isAway = true;
  const counting = await begun();
  expect([counting.trouble, counting.count]).toEqual(['restarting', null]);
});

test('nothing is handed in while it goes on', async () => {
  const counting = await begun();
  await counting.handIn();
  expect([handedIn, counting.isOn]).toEqual([[], true]);
});

const crossing = (time: number, direction = 'in', entrance = 1) => ({
  kind: 'crossing',
  t: textOf(time),
  entrance,
  direction,
  class: 'Person',
});
const watched = (time: number) => ({ kind: 'watched', t: textOf(time) });
const handCount = (begin: number, end: number, taps: number[], more: object = {}) => ({
  kind: 'hand_count',
  t: textOf(end + 5),
  user: 'ann',
  begin: textOf(begin),
  end: textOf(end),
  phone_offset: 0,
  remark: '',
  taps: taps.map((time) => ({ t: textOf(time), entrance: 1, direction: 'in' })),
  ...more,
});
const kBegin = kStart - 3_600_000;
const kEnd = kBegin + 600_000;

test('counts by hand stand beside the crossings of their time, the newest first', async () => {
  ledger = [
    crossing(kBegin - 60_000),
    watched(kBegin - 30_000),
    crossing(kBegin + 11_000),
    crossing(kBegin + 50_000),
    watched(kBegin + 60_000),
    crossing(kEnd + 2000), // late, but of a tap right before the end
    watched(kEnd + 4000),
    handCount(kBegin, kEnd, [kBegin + 10_000, kBegin + 90_000, kEnd - 500], { light: 'dark', remark: 'fog' }),
    crossing(kEnd + 900_000),
    handCount(kEnd + 800_000, kEnd + 1_000_000, [kEnd + 899_000]),
  ];
  const [newest, older] = await askRecords();
  expect(newest).toMatchObject({ missed: [], invented: [], isVoid: false, light: null });
  expect(older).toMatchObject({ user: 'ann', light: 'dark', remark: 'fog', isVoid: false });
  expect(older.missed.map(({ time }) => time - kBegin)).toEqual([90_000]);
  expect(older.invented.map(({ time }) => time - kBegin)).toEqual([50_000]);
  expect(older.blocks).toEqual([
    { byHand: 2, difference: 0 },
    { byHand: 1, difference: 0 },
  ]);
});

test('a count is void once the camera counts otherwise, or when it was started anew in the middle', async () => {
  const record = handCount(kBegin, kEnd, []);
  const settings = (time: number, ...changed: string[]) => ({ kind: 'settings', t: textOf(time), changed });
  const isVoid = async (...others: object[]) => {
    ledger = [...others, record];
    return (await askRecords())[0].isVoid;
  };
  expect(await isVoid()).toBe(false);
  expect(await isVoid(settings(kBegin - 1, 'Occupancy10x'))).toBe(false);
  expect(await isVoid(settings(kEnd + 1, 'Follower1IP', 'ThisDeviceCameraName', 'MinOccupantsForTrigger'))).toBe(false);
  expect(await isVoid(settings(kEnd + 1, 'Follower1IP', 'Occupancy10x'))).toBe(true);
  expect(await isVoid(settings(kBegin + 1, 'Sensitivity'))).toBe(true);
  expect(await isVoid(settings(kEnd + 1, 'Detection1ThreshSeconds'))).toBe(false);
  expect(await isVoid(settings(kEnd + 1, 'Detection10x'))).toBe(true);
  expect(await isVoid({ kind: 'start', t: textOf(kBegin + 1) })).toBe(true);
  expect(await isVoid({ kind: 'start', t: textOf(kEnd + 1) })).toBe(false);
});

test('the ledger is read no further than a count went', async () => {
  ledger = [handCount(kBegin, kEnd, [])];
  for (let minute = 1; minute < 60; ++minute) ledger.push(watched(kEnd + minute * 60_000));
  await askRecords();
  const asked = vi.mocked(fetch).mock.calls.filter(([address]) => String(address).includes('crossing'));
  expect(asked).toHaveLength(1);
});

test('a camera that does not answer leaves what was read', async () => {
  ledger = [handCount(kBegin, kEnd, [])];
  const records = new HandRecords();
  await records.load();
  isAway = true;
  await records.load();
  expect([records.trouble, records.records!.length, records.isLoading]).toEqual(['restarting', 1, false]);
});
