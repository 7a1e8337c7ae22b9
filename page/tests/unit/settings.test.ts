import { describe, expect, test } from 'vitest';
import { problemOf } from '../../src/model/rules';
import {
  cornerCount,
  differences,
  edited,
  hidingSize,
  isWritten,
  polygonChanges,
  polygonOf,
  problems,
  readSettings,
  uploadBody,
  whyNobodyIsHidden,
  withEdits,
} from '../../src/model/settings';

const size = { width: 1280, height: 720 };
const document =
  '<app><Sensitivity>0.350000</Sensitivity><CamsResAsCsv>640x360,1280x720,</CamsResAsCsv><DetectionControlPoints>4</DetectionControlPoints>' +
  '<Detection1_0>0.000000</Detection1_0><Detection1_1>0.000000</Detection1_1><Detection1_2>0.500000</Detection1_2><Detection1_3>0.500000</Detection1_3>' +
  '<FO1_Pwd>s3cret & more</FO1_Pwd><FromALaterVersion>x</FromALaterVersion><CamName>Lobby</CamName></app>';
const loaded = readSettings(document)!;

test('what was not changed goes back as it came, and what only a download has does not', () => {
  expect(uploadBody(loaded)).toBe(
    document
      .replace(/<CamsResAsCsv>.*<\/CamsResAsCsv>/, '')
      .replace('<app>', '<root>')
      .replace('</app>', '</root>'),
  );
});

const hiding = new Map([
  ['AnonOverlaysOn', '1'],
  ['SelectedAnonOverlay', '640x360'],
  ['DetectionOverlaysOn', '1'],
  ['SelectedDetectionOverlay', '1280x720'],
]);
test.each([
  ['on', '640x360', {}],
  ['off', '', { AnonOverlaysOn: '0' }],
  ['on, but of the analysed size', '', { SelectedAnonOverlay: '1280x720' }],
  ['on, without a size', '', { SelectedAnonOverlay: '' }],
])('the size at which people are hidden: %s', (_, expected, changes) => {
  expect(hidingSize(withEdits(hiding, new Map(Object.entries(changes))), size)).toBe(expected);
});

test('only what was changed differs', () => {
  const edits = edited(loaded, new Map(), [['CamName', 'Door']]);
  expect(uploadBody(withEdits(loaded, edits))).toContain(
    '<FO1_Pwd>s3cret & more</FO1_Pwd><FromALaterVersion>x</FromALaterVersion><CamName>Door</CamName></root>',
  );
});

test.each(['', '<app></app>', '<html><body>Log in</body></html>'])('%j is no settings document', (text) => {
  expect(readSettings(text)).toBeNull();
});

test('an edit that is taken back is none', () => {
  const once = edited(loaded, new Map(), [['CamName', 'Door']]);
  expect(once.size).toBe(1);
  expect(edited(loaded, once, [['CamName', 'Lobby']]).size).toBe(0);
});

test('differences name what others changed, added and removed', () => {
  const theirs = readSettings(
    document.replace('Lobby', 'Hall').replace('0.350000', '0.5').replace('<FO1_Pwd>s3cret & more</FO1_Pwd>', ''),
  )!;
  expect(differences(loaded, theirs)).toEqual(['Sensitivity', 'FO1_Pwd', 'CamName']);
  expect(differences(loaded, new Map([...loaded, ['CamsResAsCsv', '']]))).toEqual([]);
});

describe('areas', () => {
  test('corners are cut to whole pixels, as the camera does', () => {
    expect(polygonOf(loaded, 'Detection', 1, size)).toEqual([
      { x: 0, y: 0 },
      { x: 640, y: 360 },
      { x: 0, y: 0 },
      { x: 0, y: 0 },
    ]);
  });
  test.each([
    ['4', 4],
    ['8', 8],
    ['99', 8],
    ['0', 3],
    ['-1', 3],
    ['', 4],
    ['many', 4],
  ])('%j corners are %d', (text, count) => {
    expect(cornerCount(new Map([['DetectionControlPoints', text]]), 'Detection')).toBe(count);
  });
  test('exclusions always have four corners', () => {
    expect(
      cornerCount(
        new Map([
          ['DetectionControlPoints', '8'],
          ['EntrancesControlPoints', '6'],
        ]),
        'Exclusion',
      ),
    ).toBe(4);
  });
  test('every pixel survives the way to the camera and back', () => {
    for (const width of [320, 960, 1280, 1920, 3840]) {
      for (let x = 0; x < width; ++x) {
        const changes = polygonChanges(new Map(), 'Detection', 2, [{ x, y: 0 }], { width, height: 720 });
        const back = polygonOf(new Map([...changes, ['DetectionControlPoints', '3']]), 'Detection', 2, {
          width,
          height: 720,
        });
        expect(back[0].x).toBe(x);
      }
    }
  });
  test('a corner that stays on its pixel stays as it is written', () => {
    const [x, y] = polygonChanges(loaded, 'Detection', 1, [{ x: 0, y: 5 }], size);
    expect(x).toEqual(['Detection1_0', '0.000000']);
    expect(y[1]).not.toBe('0.000000');
  });
});

test.each([
  ['Sensitivity', '0.4', '0.400000', true],
  ['Sensitivity', '0.4', '0.41', false],
  ['Occupants', '007', '7', true],
  ['Occupants', '7', '8', false],
  ['MaxDisappear', '2.54', '2.500000', true],
  ['MaxDisappear', '2.5', '2.600000', false],
  ['Sensitivity', '', '0.000000', false],
  ['Detection1_0', '0.500195', '0.500000', true],
  ['Detection1_0', '0.500195', '0.501000', false],
  ['Entrance3_15', '0.5', '0.500500', true],
  ['CamName', 'Door', 'Door', true],
  ['CamName', '1.0', '1', false],
  ['DetectBoats', '1', '0', false],
])('of %s the camera may write %j as %j: %j', (tag, sent, back, expected) => {
  expect(isWritten(tag, sent, back, size)).toBe(expected);
});

test.each([
  ['hiding is off', '0', '1280x720', '1', null],
  ['a stream of its own', '1', '640x360', '1', null],
  ['no stream', '1', '', '0', 'noStream'],
  ['the stream of the analysis', '1', '1280x720', '0', 'analysis'],
  ['the stream with overlays', '1', '800x450', '1', 'overlays'],
  ['the stream where overlays would be, were they on', '1', '800x450', '0', null],
] as const)('who is hidden: %s', (_, hides, stream, overlays, expected) => {
  const values = new Map([
    ['AnonOverlaysOn', hides],
    ['SelectedAnonOverlay', stream],
    ['DetectionOverlaysOn', overlays],
    ['SelectedDetectionOverlay', '800x450'],
  ]);
  expect(whyNobodyIsHidden(values, size)).toBe(expected);
});

describe('rules', () => {
  test.each([
    ['Sensitivity', '0.35'],
    ['Sensitivity', '0'],
    ['Sensitivity', '1'],
    ['MaxDisappear', '2.5'],
    ['Detection2ThreshSeconds', '86400'],
    ['RepInt', '1'],
    ['Occupants', '1000000'],
    ['OccAutoResTime', '23:59'],
    ['CamName', 'Übergröße & Söhne "1"'],
    ['FO1_IP', ''],
    ['FO10_IP', '192.0.2.7'],
    ['FO1_IP', 'camera-7.example:8080'],
    ['FO1_IP', '[2001:db8::1]:80'],
    ['FO1_Pwd', 'p,ä"\'> ß'],
    ['SomethingElse', '<anything>'],
  ])('%s may be %j', (tag, value) => {
    expect(problemOf(tag, value)).toBeNull();
  });
  test.each([
    ['Sensitivity', ''],
    ['Sensitivity', '1.01'],
    ['Sensitivity', '0,5'],
    ['Sensitivity', 'NaN'],
    ['Sensitivity', '1e-1'],
    ['Sensitivity', '0x1'],
    ['MaxDisappear', '-1'],
    ['MaxDisappear', '101'],
    ['Detection1ThreshSeconds', '1.5'],
    ['Detection3ThreshSeconds', '86401'],
    ['RepInt', '0'],
    ['RepInt', '1441'],
    ['Occupants', '99999999999999999999'],
    ['MinNumberOfPeopleForTrigger', ' '],
    ['OccAutoResTime', '24:00'],
    ['OccAutoResTime', '3:5'],
    ['DetectCars', 'true'],
    ['CamName', 'a<b'],
    ['CamName', 'a,b'],
    ['CamName', 'terror'],
    ['CamName', 'a\nb'],
    ['FO2_Name', 'x'.repeat(201)],
    ['FO3_Pwd', '<'],
    ['FO4_Login', '\u0000'],
    ['FO1_IP', 'http://192.0.2.7'],
    ['FO1_IP', 'user:password@host'],
    ['FO1_IP', 'host:0'],
    ['FO1_IP', 'host:99999'],
    ['FO1_IP', 'a b'],
  ])('%s may not be %j, with a reason', (tag, value) => {
    expect(problemOf(tag, value)).toMatch(/\.$/);
  });
  test('a follower that is counted in needs an address', () => {
    const stored = new Map([
      ['FO2_Active', '0'],
      ['FO2_IP', ''],
    ]);
    expect([...problems(stored, new Map([['FO2_Active', '1']])).keys()]).toEqual(['FO2_IP']);
    expect(
      problems(
        stored,
        new Map([
          ['FO2_Active', '1'],
          ['FO2_IP', '192.0.2.7'],
        ]),
      ).size,
    ).toBe(0);
  });
  const building = new Map([
    ['CamName', 'Lobby'],
    ['FO1_Name', 'Yard'],
    ['FO1_IP', 'yard.example'],
    ['FO2_Name', ''],
    ['FO2_IP', ''],
    ['FO3_Name', 'Twin'],
    ['FO4_Name', 'Twin'],
  ]);
  test.each([
    ['FO2_Name', 'Lobby', 'This camera has this name already'],
    ['FO2_Name', 'Yard', 'Follower 1 has this name already'],
    ['CamName', 'Yard', 'Follower 1 has this name already'],
    ['FO2_IP', 'yard.example', 'Follower 1 has this address already'],
    ['FO2_IP', 'Yard.Example:80', 'Follower 1 has this address already'],
  ])('no two cameras have one name or address: %s %j', (tag, value, words) => {
    const found = problems(building, new Map([[tag, value]]));
    expect([...found.keys()]).toEqual([tag]);
    expect(found.get(tag)).toMatch(new RegExp(`^${words}`));
  });
  test.each([
    ['FO2_Name', 'Door'],
    ['FO1_Name', ''],
    ['FO2_IP', 'yard.example:8080'],
    ['FO1_IP', ''],
    ['RepInt', '5'],
  ])('and others are free, whatever was stored before: %s %j', (tag, value) => {
    expect(problems(building, new Map([[tag, value]])).size).toBe(0);
  });
  test('nobody is held up by what was stored before', () => {
    expect(
      problems(
        new Map([
          ['CamName', 'a,b'],
          ['FO1_Active', '1'],
          ['FO1_IP', ''],
        ]),
        new Map([['RepInt', '5']]),
      ).size,
    ).toBe(0);
  });
});
