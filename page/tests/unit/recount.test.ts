import { afterEach, beforeEach, expect, test, vi } from 'vitest';
import { isOfEntrances, recountSettings, RecountStore, yesterday } from '../../src/model/recount';

vi.mock('../../src/camera', () => ({
  webService: 'http://camera.example/webservices.cgi',
  loginCheck: 'http://camera.example/icon.svg',
}));

const size = { width: 640, height: 360 };
const corners = (tag: string, points: [string, string][]) =>
  points.flatMap(([x, y], i): [string, string][] => [
    [`${tag}_${2 * i}`, x],
    [`${tag}_${2 * i + 1}`, y],
  ]);
const values = new Map([
  ['EntrancesControlPoints', '3'],
  ['Entrance1_Active', '1'],
  ...corners('Entrance1', [
    ['0', '0'],
    ['0.5', '0'],
    ['1.5', '1'],
  ]),
  ['Entrance2_Active', '0'],
  ['IsCameraInside', '1'],
]);
const row = (direction: string, count: number, of = 'Person') => ({ entrance: 1, direction, class: of, count });

let answers: (() => Response | Promise<Response>)[];
let asked: { address: URL; body: unknown }[];
let store: RecountStore;
const told = (answer: object) => () => new Response(JSON.stringify(answer));

beforeEach(() => {
  vi.useFakeTimers({ now: new Date(2026, 2, 1, 7) });
  asked = [];
  answers = [];
  vi.stubGlobal('fetch', async (address: string, { body }: RequestInit = {}) => {
    asked.push({ address: new URL(address), body });
    return answers.shift()!();
  });
  store = new RecountStore();
});
afterEach(() => {
  vi.useRealTimers();
  vi.unstubAllGlobals();
});
const later = (milliseconds: number) => vi.advanceTimersByTimeAsync(milliseconds);

test('entrances that are in use are sent as fractions inside the picture, with every class', () => {
  const sent = JSON.parse(recountSettings(values, size)) as Record<string, unknown>;
  expect(Object.keys(sent)).toEqual(['classes', 'camera_inside', 'entrance1']);
  expect(sent.classes).toContain('Boat');
  expect(sent.camera_inside).toBe(true);
  expect(sent.entrance1).toEqual([
    [0.25 / 640, 0.25 / 360],
    [320.25 / 640, 0.25 / 360],
    [1, 1],
  ]);
});

test('what is counted at entrances depends on their outlines and on which side the camera is', () => {
  expect(
    ['Entrance2_7', 'Entrance1_Active', 'EntrancesControlPoints', 'IsCameraInside'].filter(isOfEntrances),
  ).toHaveLength(4);
  expect(['Detection1_0', 'DetectPersons', 'Exclusion1_0', 'RepInt'].filter(isOfEntrances)).toEqual([]);
});

test('yesterday is a day of the camera, the last of February too', () => {
  expect(yesterday(new Date(2026, 2, 1, 0, 5))).toBe('&from=2026-02-28&to=2026-03-01');
});

test('sums of all classes are told beside those that were recorded', async () => {
  answers = [
    told({ counts: [row('in', 3), row('in', 2, 'Car'), row('out', 1)], recorded: [row('in', 9)], without_path: 3 }),
  ];
  void store.want('{"a":1}');
  await later(0);
  expect(asked[0].address.searchParams.get('action')).toBe('recount');
  expect(asked[0].address.searchParams.get('from')).toBe('2026-02-28');
  expect(asked[0].body).toBe('{"a":1}');
  expect(store.result).toEqual({
    isYesterday: true,
    drawn: new Map([[1, { cameIn: 5, wentOut: 1 }]]),
    recorded: new Map([[1, { cameIn: 9, wentOut: 0 }]]),
    withoutWay: 3,
  });
});

test('where nobody came yesterday the last day and night are told', async () => {
  answers = [
    told({ counts: [], recorded: [], without_path: 0 }),
    told({ counts: [row('out', 1)], recorded: [], without_path: 0 }),
  ];
  void store.want('{}');
  await later(0);
  expect(asked.map(({ address }) => address.searchParams.get('from'))).toEqual(['2026-02-28', null]);
  expect(store.result).toMatchObject({ isYesterday: false, drawn: new Map([[1, { cameIn: 0, wentOut: 1 }]]) });
});

test('while a line is dragged one question is open, and the newest is answered at last', async () => {
  let release = (_: Response) => {};
  answers = [
    () => new Promise<Response>((resolve) => (release = resolve)),
    told({ counts: [row('in', 8)], recorded: [], without_path: 0 }),
  ];
  void store.want('1');
  await later(0);
  void store.want('2');
  void store.want('3');
  await later(5000);
  expect(asked).toHaveLength(1);
  release(told({ counts: [row('in', 7)], recorded: [], without_path: 0 })());
  await later(0);
  expect(store.result!.drawn.get(1)!.cameIn).toBe(7);
  expect(store.isAsking).toBe(true);
  await later(1000);
  expect(asked.map(({ body }) => body)).toEqual(['1', '3']);
  expect(store.result!.drawn.get(1)!.cameIn).toBe(8);
  expect(store.isAsking).toBe(false);
  void store.want('3');
  await later(1000);
  expect(asked).toHaveLength(2);
});

test('a camera that does not count leaves nothing of before standing', async () => {
  answers = [told({ counts: [row('in', 7)], recorded: [], without_path: 0 }), () => new Response('', { status: 503 })];
  void store.want('1');
  await later(1000);
  void store.want('2');
  await later(1000);
  expect(store.result).toBeNull();
  expect(store.trouble!.trouble).toBe('restarting');
});
