import { afterEach, describe, expect, test } from 'vitest';
import { axisLabels, dateOf, dateTimeOf, isoDateOf, momentOf, setZone } from '../../src/dates';
import { pinched } from '../../src/parts/pinch';
import { chosenLanguage } from '../../src/texts';
import { english } from '../../src/texts/en';

const at = (text: string) => Date.parse(`${text}Z`) / 1000;
const format = (text: string, options: Intl.DateTimeFormatOptions) =>
  new Intl.DateTimeFormat(undefined, { timeZone: 'UTC', ...options }).format(at(text) * 1000);

describe('labels of an axis', () => {
  test('hours say the day where it begins', () => {
    const labels = axisLabels(
      [at('2026-03-30T18:00'), at('2026-03-30T21:00'), at('2026-03-31T00:00'), at('2026-03-31T03:00')],
      3 * 3600,
    );
    const day = (text: string) => format(text, { day: 'numeric', month: 'short' });
    expect(labels.map((label) => label.split('\n')[1])).toEqual([
      day('2026-03-30T18:00'),
      undefined,
      day('2026-03-31T00:00'),
      undefined,
    ]);
    expect(labels[1]).toBe(format('2026-03-30T21:00', { timeStyle: 'short' }));
  });
  test('days and months are written as the locale does', () => {
    expect(axisLabels([at('2026-03-05T00:00')], 86_400)).toEqual([
      format('2026-03-05T00:00', { day: 'numeric', month: 'short' }),
    ]);
    expect(axisLabels([at('2026-03-01T00:00')], 31 * 86_400)).toEqual([
      format('2026-03-01T00:00', { month: 'short', year: 'numeric' }),
    ]);
    expect(dateTimeOf(at('2026-03-05T13:45'))).toContain(dateOf(at('2026-03-05T00:00')));
  });
});

test("a moment has a date where that is not today's", () => {
  const now = new Date(2026, 2, 31, 0, 5);
  const words = (moment: Date, options: Intl.DateTimeFormatOptions) =>
    new Intl.DateTimeFormat(undefined, options).format(moment);
  const [today, yesterday] = [new Date(2026, 2, 31, 0, 1, 7), new Date(2026, 2, 30, 23, 59, 7)];
  expect(momentOf(today, now, 'medium')).toBe(words(today, { timeStyle: 'medium' }));
  expect(momentOf(yesterday, now, 'short')).toBe(words(yesterday, { dateStyle: 'medium', timeStyle: 'short' }));
  expect(momentOf(yesterday, now, 'short')).toContain(words(yesterday, { dateStyle: 'medium' }));
});

describe('where the camera hangs elsewhere', () => {
  afterEach(() => setZone(null));
  // 22:30 UTC of a summer's day, and of a winter's.
  const [summer, winter] = [new Date('2026-07-01T22:30:00Z'), new Date('2026-01-01T22:30:00Z')];

  test.each([
    [{ name: 'Australia/Adelaide', offset: 34_200 }, ['2026-07-02', '08:00'], ['2026-01-02', '09:00']],
    // Without a name its offset is that of now.
    [{ name: '', offset: -36_000 }, ['2026-07-01', '12:30'], ['2026-01-01', '12:30']],
    [{ name: 'Moon/Base', offset: 7200 }, ['2026-07-02', '00:30'], ['2026-01-02', '00:30']],
  ])('times are those of %j', (zone, inSummer, inWinter) => {
    setZone(zone);
    for (const [moment, [date, time]] of [
      [summer, inSummer],
      [winter, inWinter],
    ] as const) {
      expect(isoDateOf(moment)).toBe(date);
      expect(momentOf(moment, moment, 'short')).toBe(format(`${date}T${time}`, { timeStyle: 'short' }));
    }
    // Two hours later it is another day there, or not.
    const later = new Date(summer.getTime() + 2 * 3_600_000);
    expect(momentOf(summer, later, 'short').length > 8).toBe(isoDateOf(later) !== isoDateOf(summer));
  });
});

test.each([
  [6, '6 s ago'],
  [119, '119 s ago'],
  [120, '2 min ago'],
  [600, '10 min ago'],
  [7199, '120 min ago'],
  [7200, '2 h ago'],
  [100_000, '28 h ago'],
  [259_200, '3 days ago'],
])('%d seconds are %s', (seconds, words) => {
  expect(english.live.secondsAgo(seconds)).toBe(words);
});

describe('two fingers', () => {
  test.each([
    ['apart zoom in around what is between them', [0.4, 0.6], [0.2, 0.8], [100 + 100 / 3, 200 - 100 / 3]],
    ['together zoom out', [0.2, 0.8], [0.4, 0.6], [0, 300]],
    ['side by side move it', [0.2, 0.4], [0.4, 0.6], [80, 180]],
    ['may cross one another', [0.6, 0.4], [0.8, 0.2], [100 + 100 / 3, 200 - 100 / 3]],
  ] as const)('%s', (_, before, now, expected) => {
    const [from, to] = pinched([100, 200], [...before], [...now]);
    expect(from).toBeCloseTo(expected[0], 9);
    expect(to).toBeCloseTo(expected[1], 9);
  });
  test('on one spot show something all the same', () => {
    const [from, to] = pinched([100, 200], [0.4, 0.6], [0.5, 0.5]);
    expect(Number.isFinite(from) && Number.isFinite(to) && to > from).toBe(true);
  });
});

test.each([
  [['en-GB', 'de'], 'en'],
  [['de-AT', 'en'], 'de'],
  [['fr', 'DE'], 'de'],
  [['fr'], 'en'],
  [[], 'en'],
])('of %j the page speaks %s', (wanted, expected) => {
  expect(chosenLanguage(wanted, ['en', 'de'])).toBe(expected);
});
