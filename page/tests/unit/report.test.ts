import { describe, expect, test } from 'vitest';
import {
  answer,
  Question,
  readHeader,
  readHeading,
  Report,
  ReportReader,
  rowAt,
  startOf,
} from '../../src/model/report';
import { hostileTexts } from '../hostile';

function read(text: string, piece = 1 << 20): Report {
  const bytes = new TextEncoder().encode(text);
  const reader = new ReportReader();
  for (let at = 0; at < bytes.length; at += piece) reader.push(bytes.slice(at, at + piece));
  return reader.finish();
}

const seconds = (text: string) => Date.parse(`${text}Z`) / 1000;
const kReport =
  'Date,AOI1_Person_Lobby,AOI2_Car_Lobby,AverageAOI1_Person_Lobby,Entrance1_Entrances_Person_Door,Entrance1_Entrances_Person_Lobby,Entrance1_Exits_Person_Lobby,Occup_Person_Lobby\n' +
  '2026-03-01 10:00:00,1,2,3,10,20,5,7\n' +
  '2026-03-01 10:15:00,4,0,1,1,2,3,-2\n' +
  '2026-03-02 00:00:00,9,9,9,100,200,300,400\n';

test.each([
  ['AOI1_Person_Lobby', { measure: 'crowd', place: 1, objectClass: 'Person', camera: 'Lobby' }],
  ['AverageAOI3_Bus_A_B', { measure: 'average', place: 3, objectClass: 'Bus', camera: 'A_B' }],
  ['Entrance2_Exits_Car_', { measure: 'exits', place: 2, objectClass: 'Car', camera: '' }],
  ['Occup_Boat_AOI1_Person_x', { measure: 'occupancy', place: 0, objectClass: 'Boat', camera: 'AOI1_Person_x' }],
  ['AOI4_Person_Lobby', null],
  ['AOI1_Dog_Lobby', null],
  ['', null],
  ['Date', null],
])('heading %j', (name, expected) => {
  expect(readHeading(name)).toEqual(expected);
});

test.each(hostileTexts)('a camera may be called %j', (name) => {
  expect(readHeader(`Date,AOI1_Person_${name},Occup_Person_${name}`).map((heading) => heading.camera)).toEqual([
    name,
    name,
  ]);
});

describe('reading', () => {
  test.each([1, 7, 64, 1 << 20])('in pieces of %d bytes', (piece) => {
    const report = read(kReport, piece);
    expect([...report.times]).toEqual([
      seconds('2026-03-01T10:00:00'),
      seconds('2026-03-01T10:15:00'),
      seconds('2026-03-02T00:00:00'),
    ]);
    expect(report.columns.map((column) => [...column.values])).toEqual([
      [1, 4, 9],
      [2, 0, 9],
      [3, 1, 9],
      [10, 1, 100],
      [20, 2, 200],
      [5, 3, 300],
      [7, -2, 400],
    ]);
    expect(report.skipped).toBe(0);
  });

  test('an empty report has a heading only', () => {
    expect(read('Date\n')).toMatchObject({ columns: [], skipped: 0 });
    expect(read('').times.length).toBe(0);
  });

  test('lines that are no rows are counted and left out', () => {
    const report = read(
      'Date,Occup_Person_A\nnonsense\n2026-03-01 10:00:00,5\n\n2026-99-99,1\n2026-03-01 09:00:00,4\n2026-03-01 11:00:00,6\n',
    );
    expect([...report.columns[0].values]).toEqual([5, 6]);
    expect(report.skipped).toBe(4);
  });

  test('missing, surplus and mangled cells shift nothing', () => {
    const report = read(
      'Date,Occup_Person_A,Occup_Person_B\n2026-03-01 10:00:00,5\n2026-03-01 11:00:00,6,7,8,9\n2026-03-01 12:00:00,<b>1,x',
    );
    expect(report.columns.map((column) => [...column.values])).toEqual([
      [5, 6, 1],
      [0, 7, 0],
    ]);
  });

  test('more rows than the first arrays hold', () => {
    const start = seconds('2026-01-01T00:00:00');
    const rows = Array.from(
      { length: 5000 },
      (_, i) => `${new Date((start + i * 60) * 1000).toISOString().slice(0, 19).replace('T', ' ')},${i}`,
    );
    const report = read(`Date,Occup_Person_A\n${rows.join('\n')}\n`);
    expect(report.times.length).toBe(5000);
    expect(report.columns[0].values[4999]).toBe(4999);
    expect(rowAt(report.times, start + 60 * 1234, 60)).toBe(1235);
  });
});

describe('answering', () => {
  const report = read(kReport);
  const question: Question = {
    measure: 'entries',
    split: 'camera',
    camera: null,
    objectClass: null,
    from: seconds('2026-03-01T00:00:00'),
    to: seconds('2026-03-03T00:00:00'),
    bucket: 0,
    period: 900,
  };

  test('one series per camera', () => {
    expect(answer(report, question).series).toEqual([
      { key: 'Door', camera: null, values: [10, 1, 100] },
      { key: 'Lobby', camera: null, values: [20, 2, 200] },
    ]);
  });
  test('entrance 1 of one camera is another than that of the next', () => {
    expect(answer(report, { ...question, split: 'place' }).series).toEqual([
      { key: '1', camera: 'Door', values: [10, 1, 100] },
      { key: '1', camera: 'Lobby', values: [20, 2, 200] },
    ]);
  });
  test('entries of an hour add up', () => {
    const hourly = answer(report, { ...question, split: 'none', bucket: 3600 });
    // The first period began at 9:45, the last ended at midnight.
    expect(hourly.times).toEqual([
      seconds('2026-03-01T09:00:00'),
      seconds('2026-03-01T10:00:00'),
      seconds('2026-03-01T23:00:00'),
    ]);
    expect(hourly.series).toEqual([{ key: '', camera: null, values: [30, 3, 300] }]);
  });
  test('of a crowd the highest counts', () => {
    expect(answer(report, { ...question, measure: 'crowd', split: 'place', bucket: 3600 }).series).toEqual([
      { key: '1', camera: 'Lobby', values: [1, 4, 9] },
      { key: '2', camera: 'Lobby', values: [2, 0, 9] },
    ]);
  });
  test('a camera without a name is one camera, not all of them', () => {
    const two = read('Date,Entrance1_Entrances_Person_,Entrance1_Entrances_Person_Door\n2026-03-01 10:00:00,1,2\n');
    expect(answer(two, { ...question, camera: '' }).series).toEqual([{ key: '', camera: null, values: [1] }]);
    expect(answer(two, question).series).toEqual([
      { key: '', camera: null, values: [1] },
      { key: 'Door', camera: null, values: [2] },
    ]);
  });
  test('only the chosen time, camera and class', () => {
    const chosen = answer(report, {
      ...question,
      camera: 'Lobby',
      objectClass: 'Person',
      to: seconds('2026-03-01T10:00:00'),
    });
    expect(chosen.series).toEqual([{ key: 'Lobby', camera: null, values: [20] }]);
    expect(answer(report, { ...question, objectClass: 'Boat' }).series).toEqual([]);
  });
});

describe('a period', () => {
  const at = (...times: string[]) => Float64Array.from(times, (time) => seconds(`2026-03-01T${time}`));

  test('begins where the one before ended', () => {
    expect(startOf(at('10:00:00', '10:15:03'), 1, 1000)).toBe(seconds('2026-03-01T10:00:00'));
  });
  test('is no longer than the camera makes them: it was away', () => {
    expect(startOf(at('10:00:00', '12:00:00'), 1, 900)).toBe(seconds('2026-03-01T11:45:00'));
    expect(startOf(at('10:00:00'), 0, 900)).toBe(seconds('2026-03-01T09:45:00'));
  });
});
