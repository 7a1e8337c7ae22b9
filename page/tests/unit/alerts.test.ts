import { describe, expect, test, vi } from 'vitest';
import { Alerts, readAlerts, readBeginning } from '../../src/model/alerts';
import { readLines } from '../../src/model/crossings';

vi.mock('../../src/camera', () => ({
  webService: 'http://camera.example/webservices.cgi',
  loginCheck: 'http://camera.example/icon.svg',
}));

const at = (minute: number) => new Date(Date.UTC(2026, 10, 22, 9, minute)).toISOString();
const line = (seq: number, fields: object) => `${JSON.stringify({ seq, epoch: 'e', ...fields })}\n`;
const alert = (minute: number, name: string, active: boolean, byHand = false) =>
  line(minute, { t: at(minute), kind: 'alert', alert: `Ostrel Senvo ${name}`, active, by_hand: byHand });
const start = (minute: number) => line(minute, { t: at(minute), kind: 'start' });
const told = (text: string) =>
  readAlerts(readLines(text)).map(({ name, isByHand, since, until }) => [
    name,
    isByHand,
    since.getMinutes(),
    until?.getMinutes() ?? null,
  ]);

describe('alerts of the ledger', () => {
  test('are raised from one line to the other, the newest first', () => {
    expect(
      told(
        alert(1, 'Breached', true) +
          alert(2, 'Area 2 Alert', true) +
          alert(5, 'Breached', false) +
          alert(7, 'Occupancy Alert', true),
      ),
    ).toEqual([
      ['occupancy', false, 7, null],
      ['area2', false, 2, null],
      ['breached', false, 1, 5],
    ]);
  });

  test('raised by hand are others than those of a rule', () => {
    expect(
      told(alert(1, 'Area 1 Alert', true, true) + alert(2, 'Area 1 Alert', true) + alert(3, 'Area 1 Alert', false)),
    ).toEqual([
      ['area1', false, 2, 3],
      ['area1', true, 1, null],
    ]);
  });

  test('end with the run of the camera', () => {
    expect(told(alert(1, 'Area 3 Alert', true) + start(4) + alert(6, 'Area 3 Alert', true))).toEqual([
      ['area3', false, 6, null],
      ['area3', false, 1, 4],
    ]);
  });

  test('that end without a beginning, begin twice, have no time or no name are passed over', () => {
    expect(
      told(
        alert(1, 'Breached', false) +
          alert(2, 'Breached', true) +
          alert(3, 'Breached', true) +
          alert(4, 'Fire', true) +
          line(5, { boot: 'b', mono: 7, kind: 'alert', alert: 'Ostrel Senvo Area 1 Alert', active: true }) +
          line(6, { t: at(6), kind: 'crossing', alert: 'Ostrel Senvo Area 1 Alert', active: true }),
      ),
    ).toEqual([['breached', false, 2, null]]);
  });
});

test('what comes while the last day is being read is not lost', async () => {
  let answer: (response: Response) => void = () => {};
  vi.stubGlobal('fetch', () => new Promise<Response>((resolve) => (answer = resolve)));
  const alerts = new Alerts();
  const loading = alerts.load();
  alerts.add(readLines(alert(2, 'Area 1 Alert', true) + alert(3, 'Breached', true)));
  answer(new Response(alert(1, 'Area 3 Alert', true) + alert(2, 'Area 1 Alert', true)));
  await loading;
  expect(alerts.alerts.map(({ name }) => name)).toEqual(['breached', 'area1', 'area3']);
  vi.unstubAllGlobals();
});

test('the count begins anew with a start, a reset or a correction, whichever was last', () => {
  const begun = (text: string) => {
    const beginning = readBeginning(readLines(text));
    return beginning && [beginning.by, beginning.at.getMinutes()];
  };
  const of = (minute: number, kind: string) => line(minute, { t: at(minute), kind });
  expect(begun(alert(1, 'Breached', true))).toBeNull();
  expect(begun(start(1) + alert(2, 'Breached', true))).toEqual(['start', 1]);
  expect(begun(start(1) + line(2, { t: at(2), kind: 'start', occupancy: 7 }))).toEqual(['start', 1]);
  expect(begun(start(1) + of(3, 'reset') + alert(4, 'Breached', true))).toEqual(['reset', 3]);
  expect(begun(of(3, 'reset') + of(5, 'corrected') + line(6, { boot: 'b', mono: 1, kind: 'reset' }))).toEqual([
    'corrected',
    5,
  ]);
});

test('lines that come twice count once, and whoever watches is told of new ones', () => {
  const alerts = new Alerts();
  const watcher = vi.fn();
  alerts.watch(watcher);
  alerts.add(readLines(alert(1, 'Breached', true)));
  alerts.add(readLines(alert(1, 'Breached', true)));
  expect([watcher.mock.calls.length, alerts.alerts.length, alerts.raised.length]).toEqual([1, 1, 1]);
  alerts.add(readLines(alert(3, 'Breached', false)));
  expect([watcher.mock.calls.length, alerts.alerts.length, alerts.raised.length]).toEqual([2, 1, 0]);
});
