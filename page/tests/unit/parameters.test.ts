import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { describe, expect, test } from 'vitest';
import { byName, helpOf, isCoordinate, labelOf, nameOf, statusOf, tabOf, valueOf } from '../../src/model/fields';
import { parameterOf, shownParameter } from '../../src/model/parameters';
import { problemOf } from '../../src/model/rules';
import { texts } from '../../src/texts';

interface Declared {
  name: string;
  type: string;
  default: string;
  range: string;
  help: string;
}
const declared: Declared[] = JSON.parse(
  readFileSync(join(__dirname, '../../../package/manifest.json'), 'utf8'),
).parameters;

const followers = Array.from({ length: 10 }, (_, i) =>
  ['Active', 'Name', 'IP', 'Login', 'Pwd'].map((field) => `FO${i + 1}_${field}`),
).flat();
const areas = [1, 2, 3].flatMap((i) => [
  `Detection${i}_Active`,
  `Exclusion${i}_Active`,
  `Entrance${i}_Active`,
  `Detection${i}ThreshSeconds`,
]);

/** The settings for which the page has a field. */
const fields = [
  'DetectionControlPoints',
  'EntrancesControlPoints',
  'IsCameraInside',
  'LocatorAtBottom',
  'DetectPersons',
  'DetectBicycles',
  'DetectCars',
  'DetectMotorcycles',
  'DetectBuses',
  'DetectTrucks',
  'DetectTrains',
  'DetectBoats',
  'DetectAirplanes',
  'Sensitivity',
  'MaxDisappear',
  'AoiLogicComparison',
  'MinNumberOfPeopleForTrigger',
  'Occupants',
  'ResetByOccupanyCount',
  'CamName',
  'RepInt',
  'DetectionOverlaysOn',
  'SelectedDetectionOverlay',
  'AnonOverlaysOn',
  'SelectedAnonOverlay',
  'IsOccResOn',
  'OccAutoResTime',
  'VerboseLog',
  ...areas,
  ...followers,
];

describe.each(fields)('the field of %s', (tag) => {
  test('has a parameter of the manifest, and its help', () => {
    const { name, type, help } = shownParameter(tag);
    const found = declared.find((one) => one.name === name)!;
    expect(found.help).toBe(help);
    expect(help).toMatch(/^[A-Z].*\.$/);
    expect(tag === 'MaxDisappear' ? 'float' : found.type).toBe(type);
    expect(helpOf(tag)).toBe(help);
  });
  test('has a name of its own', () => {
    expect(Object.values(texts.fields.of)).toContain(labelOf(tag));
    expect(fields.filter((other) => nameOf(other) === nameOf(tag) && tabOf(other) === tabOf(tag))).toEqual([tag]);
  });
  test('obeys the range of the manifest, and takes its default', () => {
    const found = declared.find((one) => one.name === parameterOf(tag)!.name)!;
    // Flags are written otherwise in the settings, and seconds are cycles of a tenth of a second.
    const scale = tag === 'MaxDisappear' ? 10 : 1;
    const usual =
      found.type === 'bool'
        ? String(Number(found.default === 'true'))
        : found.range
          ? String(Number(found.default) / scale)
          : found.default;
    expect(problemOf(tag, usual)).toBeNull();
    if (found.type === 'bool') expect(problemOf(tag, '2')).not.toBeNull();
    if (!found.range) return;
    const [least, most] = found.range.split('..').map((bound) => Number(bound) / scale);
    expect([least, most].map((bound) => problemOf(tag, String(bound)))).toEqual([null, null]);
    const step = found.type === 'integer' && scale === 1 ? 1 : 0.01;
    for (const beyond of [least - step, most + step]) expect(problemOf(tag, String(beyond))).toMatch(/\.$/);
  });
});

test('every parameter but corners is shown by some field, or told by the page, or not for operators', () => {
  const told = ['HStream', 'WStream', 'MainLoopTime'];
  const fixed = ['ModelWidth', 'ModelHeight', 'IsSnap'];
  const shown = new Set([...fields.map((tag) => shownParameter(tag).name), ...told, ...fixed]);
  expect(declared.map(({ name }) => name).filter((name) => !/\d[xy]$/.test(name) && !shown.has(name))).toEqual([]);
});

test.each([
  ['FO3_Active', 'Follower 3: Counted in', 'cameras'],
  ['Detection2_Active', 'Area 2: In use', 'areas'],
  ['Entrance1_14', 'Entrance 1: Outline', 'areas'],
  ['Exclusion3_0', 'Exclusion 3: Outline', 'areas'],
  ['DetectionOverlaysOn', 'Draw what is found', 'advanced'],
  ['Sensitivity', 'Sensitivity', 'detection'],
  ['CamName', 'Name of this camera', 'cameras'],
  ['OccAutoResTime', 'Time of the daily reset', 'advanced'],
  ['ResetByOccupanyCount', 'Set the count to 0 when this alert is raised', 'detection'],
  ['FromALaterVersion', 'FromALaterVersion', 'detection'],
])('%s is called "%s" and is on %s', (tag, name, tab) => {
  expect([nameOf(tag), tabOf(tag)]).toEqual([name, tab]);
});

test.each([
  ['DetectCars', '1', 'on'],
  ['DetectCars', '0', 'off'],
  ['AoiLogicComparison', '2', 'at least'],
  ['AoiLogicComparison', '7', '7'],
  ['Sensitivity', '0.400000', '0.4'],
  ['CamName', '1.0', '1.0'],
  ['Unknown', '<b>', '<b>'],
])('%s of %j reads "%s"', (tag, value, words) => {
  expect(valueOf(tag, value)).toBe(words);
});

test('an outline is one of several settings, and every other setting is one', () => {
  const tags = [
    'Detection1_0',
    'DetectionControlPoints',
    'Detection1_1',
    'Detection2_0',
    'Detection1_Active',
    'FO1_Name',
    'CamName',
  ];
  expect([...byName(tags)]).toEqual([
    ['Area 1: Outline', ['Detection1_0', 'Detection1_1']],
    ['Corners of detection areas', ['DetectionControlPoints']],
    ['Area 2: Outline', ['Detection2_0']],
    [nameOf('Detection1_Active'), ['Detection1_Active']],
    ['Follower 1: Name', ['FO1_Name']],
    [nameOf('CamName'), ['CamName']],
  ]);
  expect([...byName(fields).values()].filter(({ length }) => length > 1)).toEqual([]);
});

test('corners are told from other settings of an area', () => {
  expect(
    ['Detection1_0', 'Entrance3_15', 'Detection1_Active', 'Detection1ThreshSeconds', 'FO1_IP'].filter(isCoordinate),
  ).toEqual(['Detection1_0', 'Entrance3_15']);
});

test('the texts have every status of the camera', () => {
  const source = readFileSync(join(__dirname, '../../../web/data_panel.cpp'), 'utf8');
  const own = [...source.matchAll(/^ +\{\d+, "(.*)"\},$/gm)].map(([, words]) => words);
  expect(own).toContain('Running');
  expect(Object.keys(texts.status)).toEqual(own);
});

test.each([
  ['Running', 'Läuft'],
  ['Something new', 'Something new'],
  ['<b>', '<b>'],
  ['constructor', 'constructor'],
  ['__proto__', '__proto__'],
  ['', ''],
])('the status %j reads "%s" where the texts have one', (told, words) => {
  expect(statusOf(told, { Running: 'Läuft' })).toBe(words);
});
