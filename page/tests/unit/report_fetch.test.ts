import { afterEach, beforeEach, expect, test, vi } from 'vitest';
import { Report } from '../../src/model/report';
import { fetchReport, kReportPatience } from '../../src/model/report_fetch';

vi.mock('../../src/camera', () => ({ webService: '', loginCheck: '' }));

/** Says so many pieces of a report, each when the last wait is nearly over, and then nothing more. */
function camera(pieces: string[], ends: boolean) {
  return async (_: string, { signal }: RequestInit): Promise<Response> =>
    new Response(
      new ReadableStream({
        async start(controller) {
          signal!.addEventListener('abort', () => controller.error(signal!.reason));
          for (const piece of pieces) {
            await new Promise((resolve) => setTimeout(resolve, kReportPatience - 1));
            controller.enqueue(new TextEncoder().encode(piece));
          }
          if (ends) controller.close();
        },
      }),
    );
}

const kPieces = ['Date,Crowd_Area1_Person_Here\n', '2026-03-31 10:00:00,3\n', '2026-03-31 10:15:00,4\n'];

beforeEach(() => void vi.useFakeTimers({ now: Date.UTC(2026, 3, 1) }));
afterEach(() => {
  vi.useRealTimers();
  vi.unstubAllGlobals();
});

test('a report that comes slowly is read whole', async () => {
  vi.stubGlobal('fetch', camera(kPieces, true));
  const answer = fetchReport('report');
  for (const _ of kPieces) await vi.advanceTimersByTimeAsync(kReportPatience - 1);
  expect(await answer).toMatchObject({ report: { times: { length: 2 } } });
});

test.each([
  ['no clock of the camera', '', ['2026-03-31 10:00:00', '2026-04-01 10:00:00']],
  ['a camera of a later year', 'Sat, 01 Jan 2028 00:00:00 GMT', ['2026-03-31 10:00:00', '2027-12-31 10:00:00']],
  ['a camera of an earlier year', 'Thu, 01 Jan 2015 00:00:00 GMT', ['2026-03-31 10:00:00', '2026-04-01 10:00:00']],
])('a row of the future is left out, and hides none of the others: %s', async (_, date, [first, second]) => {
  const rows = [first, '2036-02-03 04:05:06', second].map((time) => `${time},3\n`).join('');
  vi.stubGlobal(
    'fetch',
    async () => new Response(`Date,Occup_Person_Here\n${rows}`, { headers: date ? { Date: date } : {} }),
  );
  const found = (await fetchReport('report')) as { report: Report };
  expect([[...found.report.times], found.report.skipped]).toEqual([
    [first, second].map((time) => Date.parse(`${time}Z`) / 1000),
    1,
  ]);
});

test.each([0, 2])('one that stops after %d pieces is given up', async (pieces) => {
  vi.stubGlobal('fetch', camera(kPieces.slice(0, pieces), false));
  let answer: unknown = 'none yet';
  void fetchReport('report').then((given) => (answer = given));
  for (let i = 0; i < pieces; ++i) await vi.advanceTimersByTimeAsync(kReportPatience - 1);
  await vi.advanceTimersByTimeAsync(kReportPatience - 1);
  expect(answer).toBe('none yet');
  await vi.advanceTimersByTimeAsync(1);
  expect(answer).toEqual({ trouble: 'unreachable' });
});

test('so is one that never begins', async () => {
  vi.stubGlobal(
    'fetch',
    (_: string, { signal }: RequestInit) =>
      new Promise((_resolve, reject) => signal!.addEventListener('abort', () => reject(signal!.reason as Error))),
  );
  const answer = fetchReport('report');
  await vi.advanceTimersByTimeAsync(kReportPatience);
  expect(await answer).toEqual({ trouble: 'unreachable' });
});
