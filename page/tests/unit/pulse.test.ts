import { afterEach, beforeEach, describe, expect, test, vi } from 'vitest';
import { aheadOf, Pulse } from '../../src/model/pulse';

vi.mock('../../src/camera', () => ({
  webService: 'http://camera.example/webservices.cgi',
  loginCheck: 'http://camera.example/icon.svg',
}));

/** What the camera answers, by action. */
let told: Record<string, string>;
/** Its ledger: what life of it, and its lines. */
let ledger: { epoch: string; lines: string[] };
/** How often it was synced for a question, and how much it has told. */
let syncs: number;
let bytes: number;
/** So many lines an answer has at most. */
let mostLines: number;
/** In place of any answer. */
let trouble: Error | number | null;
/** What becomes of a login: the status of its answer, or none. Without one everybody is refused. */
let login: number | 'hangs';
let logins: number;
let page: { hidden: boolean; addEventListener: (_: string, listener: () => void) => void };
let visibilityChanges: () => void;
let pulse: Pulse;

/** As the camera answers several questions at once: each answer but the first comes with its head. */
const together = (answers: string[]) => answers.join('Status: 200 OK\r\nContent-Type: text/plain\r\n\r\n');

async function camera(address: string, { credentials, signal }: RequestInit = {}): Promise<Response> {
  if (trouble instanceof Error) throw trouble;
  if (trouble) return new Response('', { status: trouble });
  if (address.includes('icon.svg')) {
    if (credentials === 'omit') return new Response('', { status: 401 });
    ++logins;
    if (login !== 'hangs') return new Response('', { status: login });
    return new Promise((_, reject) => signal!.addEventListener('abort', () => reject(signal!.reason as Error)));
  }
  if (address.includes('get_ledger')) return ledgerAnswer(new URL(address).searchParams);
  return new Response(together(new URL(address).searchParams.getAll('action').map((action) => told[action] ?? '')));
}

/** The lines behind the one that is named, of any epoch; their numbers rise from line to line. */
function ledgerAnswer(asked: URLSearchParams): Response {
  const { epoch, lines } = ledger;
  const [since, seq] = (asked.get('since') ?? `${epoch}:0`).split(':');
  const end = lines.length ? seqOf(lines[lines.length - 1]) : 0;
  const behind = lines.filter((line) => since !== epoch || seqOf(line) > Number(seq));
  const looked = behind.slice(0, Math.min(mostLines, Number(asked.get('limit') ?? Infinity)));
  const next = looked.length ? seqOf(looked[looked.length - 1]) : Number(seq);
  const kinds = asked.get('kinds')?.split(',');
  const wanted = looked.filter((line) => !kinds || kinds.includes((JSON.parse(line) as { kind: string }).kind));
  syncs += asked.get('newest') === '1' ? 0 : 1;
  bytes += wanted.join('').length;
  return new Response(wanted.join(''), {
    headers: { 'X-Ledger-Next': `${epoch}:${next}`, 'X-Ledger-End': `${epoch}:${end}` },
  });
}

const seqOf = (line: string) => (JSON.parse(line) as { seq: number }).seq;
const written = (kind: string, more: object) => {
  const seq = ledger.lines.length ? seqOf(ledger.lines[ledger.lines.length - 1]) + 1 : 1;
  const head = { seq, epoch: ledger.epoch, t: new Date().toISOString(), kind };
  ledger.lines.push(`${JSON.stringify({ ...head, ...more })}\n`);
};
const passed = (direction: 'in' | 'out', entrance: number) =>
  written('crossing', { entrance, direction, class: 'person' });
const panel = (crowd: string) =>
  (told.get_data_panel_info = `<app><TotalOcc>9</TotalOcc><NameCam_0>Lobby</NameCam_0><AOICam_0>${crowd}</AOICam_0><StatusCam_0>Running</StatusCam_0></app>`);
const beat = () => vi.advanceTimersByTimeAsync(1000);
const ticker = () => pulse.passages.map(({ by, entrance }) => `${by} at ${entrance}`);
const minutesAgo = () => pulse.passages.map(({ time }) => Math.round((Date.now() - time!.getTime()) / 60_000));

async function hideFor(milliseconds: number): Promise<void> {
  page.hidden = true;
  visibilityChanges();
  await vi.advanceTimersByTimeAsync(milliseconds);
  page.hidden = false;
  visibilityChanges();
}

beforeEach(async () => {
  vi.useFakeTimers({ now: new Date(2026, 2, 31, 10, 14) });
  told = {
    get_occupancy_count: '4',
    get_total_crowd: '20',
    get_crowd_2: '5',
    get_crowd_3: '1',
    get_execution_time: '100',
    get_follower_ages: '',
  };
  ledger = { epoch: 'first', lines: [] };
  mostLines = Infinity;
  syncs = bytes = 0;
  for (let i = 0; i < 20; ++i) passed('in', 1);
  panel('9');
  trouble = null;
  login = 200;
  logins = 0;
  page = { hidden: false, addEventListener: (_, listener) => (visibilityChanges = listener) };
  vi.stubGlobal('document', page);
  vi.stubGlobal('fetch', camera);
  vi.stubGlobal(
    'BroadcastChannel',
    class {
      postMessage() {}
    },
  );
  pulse = new Pulse();
  pulse.start();
  await vi.advanceTimersByTimeAsync(1);
  expect(pulse.connection).toBe('ok');
});
afterEach(() => {
  vi.useRealTimers();
  vi.unstubAllGlobals();
});

describe('who comes and goes', () => {
  test('is told as it happens', async () => {
    expect([ticker(), pulse.cameIn, pulse.wentOut]).toEqual([[], 0, 0]);
    passed('out', 1);
    written('watched', { seconds: 60 });
    passed('in', 2);
    await beat();
    expect([ticker(), pulse.cameIn, pulse.wentOut]).toEqual([['1 at 2', '-1 at 1'], 1, 1]);
    await beat();
    passed('in', 2);
    await beat();
    expect([ticker(), pulse.cameIn, pulse.wentOut]).toEqual([['1 at 2', '1 at 2', '-1 at 1'], 2, 1]);
    expect(pulse.perEntrance.map(({ cameIn, wentOut }) => [cameIn, wentOut])).toEqual([
      [0, 1],
      [2, 0],
      [0, 0],
    ]);
  });
  test.each([
    ['no answer', new TypeError('no network')],
    ['a restart', 503],
    ['a refused login', 401],
  ])('during %s is told afterwards, with its time', async (_, what) => {
    trouble = what;
    passed('in', 1);
    await beat();
    expect(pulse.connection).not.toBe('ok');
    await vi.advanceTimersByTimeAsync(120_000);
    expect([ticker(), pulse.cameIn]).toEqual([[], 0]);
    trouble = null;
    void pulse.signIn();
    await beat();
    passed('in', 2);
    await beat();
    expect([ticker(), pulse.cameIn, minutesAgo()]).toEqual([['1 at 2', '1 at 1'], 2, [0, 2]]);
  });
  test('is not lost when another question of the same moment fails', async () => {
    passed('in', 3);
    vi.stubGlobal('fetch', (address: string, options: RequestInit) =>
      address.includes('get_total_crowd') ? new Response('', { status: 503 }) : camera(address, options),
    );
    await beat();
    vi.stubGlobal('fetch', camera);
    await vi.advanceTimersByTimeAsync(2000);
    expect([pulse.connection, ticker()]).toEqual(['ok', ['1 at 3']]);
  });
  test('is all told when it is more than one answer holds', async () => {
    mostLines = 3;
    for (let i = 0; i < 10; ++i) passed(i % 2 ? 'in' : 'out', 2);
    await beat();
    expect([pulse.cameIn, pulse.wentOut]).toEqual([5, 5]);
  });
  test('is told from the beginning of a ledger that was begun anew, once', async () => {
    for (let i = 0; i < 1000; ++i) passed('in', 1);
    pulse = new Pulse();
    pulse.start();
    await beat();
    passed('out', 3);
    await beat();
    ledger = { epoch: 'second', lines: [] };
    for (let i = 0; i < 3; ++i) passed('in', 2);
    await beat();
    await beat();
    expect(ticker()).toEqual(['1 at 2', '1 at 2', '1 at 2', '-1 at 3']);
    passed('out', 1);
    await beat();
    expect(ticker()[0]).toBe('-1 at 1');
    expect(pulse.cameIn + pulse.wentOut).toBe(5);
  });
  test.each([
    ['all that was read before is still there', 1002],
    ['some of what was read before is gone', 992],
    ['nothing that was read before is there', 300],
    ['nothing at all is there', 0],
  ])('is told, once, where another epoch goes on behind one that was: %s', async (_, kept) => {
    ledger = { epoch: 'earlier', lines: [] };
    for (let i = 0; i < 900; ++i) passed('in', 1);
    ledger.epoch = 'first';
    for (let i = 0; i < 100; ++i) passed('in', 1);
    pulse = new Pulse();
    pulse.start();
    await beat();
    passed('out', 3);
    await beat();
    passed('out', 2); // the camera has it, the page does not
    ledger.lines.length = Math.min(kept, ledger.lines.length);
    ledger.epoch = 'second';
    passed('in', 3);
    passed('in', 2);
    await beat();
    await beat();
    expect(ticker()).toEqual(['1 at 2', '1 at 3', ...(kept === 1002 ? ['-1 at 2'] : []), '-1 at 3']);
  });
  test.each([
    ['before the end that was known', 1],
    ['at the same number', 4],
    ['behind it', 9],
  ])('is told, once, when a power cut took lines and their numbers were given anew, %s', async (_, anew) => {
    for (let i = 0; i < 4; ++i) passed('out', 3);
    await beat();
    ledger.lines.length -= 4;
    for (let i = 0; i < anew; ++i) passed('in', 2);
    await beat();
    await beat();
    expect([pulse.cameIn, pulse.wentOut, ticker()[0]]).toEqual([anew, 4, '1 at 2']);
    passed('in', 1);
    await beat();
    expect([pulse.cameIn, pulse.wentOut]).toEqual([anew + 1, 4]);
  });
  test('is told, once, when a power cut took more than came since the page was opened', async () => {
    await beat();
    ledger.lines.length = 5;
    for (let i = 0; i < 20; ++i) passed('out', 2);
    await beat();
    await beat();
    expect([pulse.cameIn, pulse.wentOut]).toEqual([0, 20]);
  });
  test('is told, once, when an answer fails while the ledger is read again', async () => {
    for (let i = 0; i < 4; ++i) passed('out', 3);
    await beat();
    ledger.lines.length -= 2;
    for (let i = 0; i < 10; ++i) passed('in', 2);
    mostLines = 3;
    let asked = 0;
    vi.stubGlobal('fetch', (address: string, options: RequestInit) =>
      address.includes('get_ledger') && ++asked === 4 ? new Response('', { status: 503 }) : camera(address, options),
    );
    await beat();
    expect(pulse.connection).toBe('restarting');
    await vi.advanceTimersByTimeAsync(4000);
    expect([pulse.connection, pulse.cameIn, pulse.wentOut]).toEqual(['ok', 10, 4]);
  });
  test('is asked for without a sync, and without what was long ago', async () => {
    for (let i = 0; i < 1000; ++i) passed('in', 1);
    written('watched', { seconds: 60 });
    await beat();
    bytes = 0;
    pulse = new Pulse();
    pulse.start();
    await vi.advanceTimersByTimeAsync(1);
    expect(pulse.connection).toBe('ok');
    expect(bytes).toBeLessThan(50_000);
    for (let i = 0; i < 500; ++i) written('object', { path: [] });
    await beat();
    bytes = 0;
    await beat();
    await beat();
    expect(bytes).toBeLessThan(500);
    expect(syncs).toBe(0);
  });
  test('is told of a camera that had not opened its ledger yet', async () => {
    vi.stubGlobal('fetch', (address: string, options: RequestInit) =>
      address.includes('get_ledger') ? new Response('') : camera(address, options),
    );
    pulse = new Pulse();
    pulse.start();
    await beat();
    expect(pulse.connection).toBe('restarting');
    vi.stubGlobal('fetch', camera);
    await vi.advanceTimersByTimeAsync(2000);
    passed('in', 1);
    await beat();
    expect([pulse.connection, ticker()]).toEqual(['ok', ['1 at 1']]);
  });
  test('while the page was hidden is told with its time', async () => {
    passed('in', 1);
    await hideFor(3_600_000);
    passed('out', 1);
    await beat();
    expect([ticker(), minutesAgo(), pulse.cameIn, pulse.wentOut]).toEqual([['-1 at 1', '1 at 1'], [0, 60], 1, 1]);
  });
});

test.each([
  ['of the second in which it was asked', 1_000_000, 1_000_400, 1_000_900, 0],
  ['of the second before, as the answer was written then', 1_000_000, 1_000_999, 1_001_500, 0],
  ['that is ahead', 1_090_000, 1_000_000, 1_000_000, 90],
  ['that is behind', 1_000_000, 1_090_999, 1_095_000, -90],
])('a clock %s', (_, told, asked, answered, ahead) => {
  expect(aheadOf(told, asked, answered)).toBe(ahead);
});

describe('back from elsewhere', () => {
  test('the figures of before are asked for', async () => {
    await hideFor(60_000);
    expect([pulse.connection, pulse.occupancy, pulse.crowd, pulse.panel!.occupancy, pulse.panel!.cameras[0]]).toEqual([
      'asking',
      null,
      [null, null, null],
      null,
      expect.objectContaining({ name: 'Lobby', status: '' }),
    ]);
    const { generation } = pulse;
    await beat();
    expect([pulse.connection, pulse.occupancy, pulse.panel!.cameras[0].status, pulse.generation]).toEqual([
      'ok',
      4,
      'Running',
      generation + 1,
    ]);
  });
  test('after a glance they stay', async () => {
    await hideFor(3000);
    expect([pulse.connection, pulse.occupancy]).toEqual(['ok', 4]);
  });
  test('trouble stays what it was until there is an answer', async () => {
    trouble = 503;
    await beat();
    await hideFor(60_000);
    expect(pulse.connection).toBe('restarting');
  });
});

describe('the crowd of area 1 is what the others leave of all', () => {
  test.each([
    ['of three that differ', '9', '5', '1', [3, 5, 1]],
    ['when the others have all', '6', '5', '1', [0, 5, 1]],
    ['and unknown without area 2', '9', '', '1', [null, null, 1]],
    ['and unknown without area 3', '9', '5', 'many', [null, 5, null]],
    ['and unknown without the sum', '', '5', '1', [null, 5, 1]],
    ['and unknown where the others have more than all', '4', '5', '1', [null, 5, 1]],
  ])('%s', async (_, all, second, third, expected) => {
    panel(all);
    told.get_crowd_2 = second;
    told.get_crowd_3 = third;
    await beat();
    expect(pulse.crowd).toEqual(expected);
    expect(pulse.panel!.cameras[0].name).toBe('Lobby');
  });
  test('and the camera is asked for all three at once', async () => {
    const asked: string[][] = [];
    vi.stubGlobal('fetch', (address: string, options: RequestInit) => {
      asked.push(new URL(address).searchParams.getAll('action'));
      return camera(address, options);
    });
    await beat();
    expect(asked.find((actions) => actions.includes('get_data_panel_info'))).toEqual([
      'get_crowd_2',
      'get_crowd_3',
      'get_data_panel_info',
    ]);
  });
});

describe('a login that hangs', () => {
  beforeEach(async () => {
    login = 'hangs';
    trouble = 401;
    await beat();
    trouble = null;
    expect(pulse.connection).toBe('signedOut');
    logins = 0;
  });
  test('is given up for another one', async () => {
    void pulse.signIn();
    await beat();
    expect([logins, pulse.connection]).toEqual([1, 'signedOut']);
    login = 200;
    void pulse.signIn();
    await beat();
    expect([logins, pulse.connection]).toEqual([2, 'ok']);
  });
  test('ends by itself, and nothing is asked after it', async () => {
    void pulse.signIn();
    await vi.advanceTimersByTimeAsync(181_000);
    await vi.advanceTimersByTimeAsync(60_000);
    expect([logins, pulse.connection]).toEqual([1, 'signedOut']);
    login = 200;
    visibilityChanges();
    await beat();
    expect([logins, pulse.connection]).toEqual([2, 'ok']);
  });
  test('says nothing any more once it is let in', async () => {
    void pulse.signIn();
    await beat();
    // The probe is on its way when the next login is accepted.
    let answer = (_: Response) => {};
    vi.stubGlobal('fetch', (address: string, options: RequestInit) =>
      options.credentials === 'omit'
        ? new Promise<Response>((resolve) => (answer = resolve))
        : camera(address, options),
    );
    await vi.advanceTimersByTimeAsync(15_000);
    login = 200;
    void pulse.signIn();
    await beat();
    answer(new Response('', { status: 401 }));
    await vi.advanceTimersByTimeAsync(1);
    expect(pulse.connection).toBe('ok');
  });
});
