import { describe, expect, test, vi } from 'vitest';
import { readCrossings, readLines } from '../../src/model/crossings';
import { hostileTexts } from '../hostile';

vi.mock('../../src/camera', () => ({ webService: '', loginCheck: '' }));

const line = (more: object) => `${JSON.stringify({ seq: 1, epoch: 'e', kind: 'crossing', ...more })}\n`;
const crossingsOf = (text: string) => readCrossings(readLines(text));

describe('crossings of the ledger', () => {
  test('are read with entrance, direction and time', () => {
    const t = '2026-11-22T05:35:01.420Z';
    expect(
      crossingsOf(line({ t, entrance: 1, direction: 'in' }) + line({ t, entrance: 3, direction: 'out', class: 'car' })),
    ).toEqual([
      { entrance: 1, by: 1, objectClass: '', time: new Date(Date.UTC(2026, 10, 22, 5, 35, 1, 420)) },
      { entrance: 3, by: -1, objectClass: 'car', time: new Date(Date.UTC(2026, 10, 22, 5, 35, 1, 420)) },
    ]);
  });
  test('of a clock that was not set yet have no time', () => {
    expect(crossingsOf(line({ boot: 'b', mono: 1200, entrance: 2, direction: 'in' }))).toEqual([
      { entrance: 2, by: 1, objectClass: '', time: null },
    ]);
    expect(crossingsOf(line({ t: 'soon', entrance: 2, direction: 'in' }))[0].time).toBeNull();
  });
  test.each([
    '',
    'null\n',
    '7\n',
    '{"kind":"crossing"',
    line({ kind: 'watched', entrance: 1, direction: 'in' }),
    line({ entrance: 4, direction: 'in' }),
    line({ entrance: '1', direction: 'in' }),
    line({ entrance: 1, direction: 'through' }),
    '{"seq":1,"kind":"crossing","entrance":1,"direction":"in"}',
    ...hostileTexts,
  ])('are none: %s', (text) => {
    expect(crossingsOf(text)).toEqual([]);
  });
});
