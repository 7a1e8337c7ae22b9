import { describe, expect, test } from 'vitest';
import {
  readAges,
  readElements,
  readInteger,
  readLog,
  readPanel,
  readResolution,
  readResolutions,
} from '../../src/model/readers';
import { hostileTexts } from '../hostile';

describe('readElements', () => {
  test.each([
    [
      '<app><A>1</A><B>two words</B></app>',
      [
        ['A', '1'],
        ['B', 'two words'],
      ],
    ],
    ['<app><A></A></app>', [['A', '']]],
    ['<?xml version="1.0"?>\n<app>\n<A>1</A>\n</app>\n', [['A', '1']]],
    ['<A>no wrapping</A>', [['A', 'no wrapping']]],
    [
      '<app><A>never closed<B>2</B></app>',
      [
        ['A', 'never closed'],
        ['B', '2'],
      ],
    ],
    ['<app><A>cut off', [['A', 'cut off']]],
    ['<app><A>1</A><A>2</A></app>', [['A', '1']]],
    [
      '<app><A>a < b > c & d</A><B>2</B></app>',
      [
        ['A', 'a < b > c & d'],
        ['B', '2'],
      ],
    ],
    ['<app><A x="1">attributes are not read</A><B>2</B></app>', [['B', '2']]],
    ['<app><Unknown>kept</Unknown></app>', [['Unknown', 'kept']]],
    ['', []],
    ['no document at all', []],
    ['<', []],
    ['<<<>>>', []],
  ])('of %j', (document, expected) => {
    expect([...readElements(document)]).toEqual(expected);
  });

  test.each(hostileTexts)('a value may be %j', (hostile) => {
    expect([...readElements(`<app><Name>${hostile}</Name><Status>Running</Status></app>`)]).toEqual([
      ['Name', hostile],
      ['Status', 'Running'],
    ]);
  });

  test('markup in a value makes no element', () => {
    const elements = readElements(
      '<app><NameCam_0><StatusCam_0>Forged</StatusCam_0></NameCam_0><StatusCam_0>Running</StatusCam_0></app>',
    );
    expect(elements.get('StatusCam_0')).toBe('Running');
  });
});

describe('readPanel', () => {
  const panel = readPanel(
    '<app><TotalOcc>12</TotalOcc><NameCam_0>Lobby</NameCam_0><NameCam_1>Door</NameCam_1><AOICam_0>3</AOICam_0><AOICam_1>-1</AOICam_1>' +
      '<ActiveCam_0>0</ActiveCam_0><ActiveCam_1>1</ActiveCam_1><StatusCam_0>Running</StatusCam_0><StatusCam_1>No connection error</StatusCam_1></app>',
  );

  test('knows this camera and ten followers', () => {
    expect(panel.cameras.length).toBe(11);
    expect(panel.cameras[0]).toEqual({ index: 0, name: 'Lobby', active: false, status: 'Running', crowd: 3 });
    expect(panel.occupancy).toBe(12);
  });

  test('a follower without answer has no count', () => {
    expect(panel.cameras[1]).toEqual({
      index: 1,
      name: 'Door',
      active: true,
      status: 'No connection error',
      crowd: null,
    });
  });

  test('what is missing is unknown', () => {
    expect(readPanel('').occupancy).toBeNull();
    expect(readPanel('').cameras[10]).toEqual({ index: 10, name: '', active: false, status: '', crowd: null });
  });
});

test.each([
  ['12', 12],
  [' 7\n', 7],
  ['-1', -1],
  ['', null],
  ['1.5', null],
  ['1e3', null],
  ['NaN', null],
  ['12345678901', null],
  [undefined, null],
  ['<b>1</b>', null],
])('readInteger of %j', (text, expected) => {
  expect(readInteger(text)).toBe(expected);
});

test.each([
  ['1280x720', { width: 1280, height: 720 }],
  ['0x0', null],
  ['1280', null],
  ['1280x720x3', null],
  ['-1x5', null],
  ['99999999x1', null],
  ['', null],
])('readResolution of %j', (text, expected) => {
  expect(readResolution(text)).toEqual(expected);
});

test('a list of resolutions ends with a comma and may hold nonsense', () => {
  expect(readResolutions('640x360,1280x720,')).toEqual(['640x360', '1280x720']);
  expect(readResolutions('640x360,javascript:alert(1), 320x240 ,,0x0')).toEqual(['640x360', '320x240']);
});

describe('readLog', () => {
  test('reads time, level and message', () => {
    expect(readLog('2026-01-02 03:04:05|ostrel_senvo|warning|STARTING ostrel_senvo\n')).toEqual([
      { time: '2026-01-02 03:04:05', level: 'warning', message: 'STARTING ostrel_senvo' },
    ]);
  });

  test('a line of another form is a message', () => {
    expect(readLog('torn line\n2026|app|fatal|x\n')).toEqual([
      { time: '', level: 'info', message: 'torn line' },
      { time: '', level: 'info', message: '2026|app|fatal|x' },
    ]);
  });

  test('separators and empty lines are left out', () => {
    expect(readLog('2026-01-02 03:04:05|ostrel_senvo|warning|\n\n|||\n')).toEqual([]);
  });

  test.each(hostileTexts)('a message may be %j', (hostile) => {
    expect(readLog(`2026-01-02 03:04:05|ostrel_senvo|info|${hostile}`)).toEqual([
      { time: '2026-01-02 03:04:05', level: 'info', message: hostile },
    ]);
  });
});

test('ages of followers, with -1 for one that has told nothing', () => {
  expect(readAges('2,0,-1,75,-1,-1,-1,-1,-1,9')).toEqual([2, 0, null, 75, null, null, null, null, null, 9]);
  for (const text of ['', '1,2', '1,2,3,4,5,6,7,8,9,10,11', 'a,b,c,d,e,f,g,h,i,j', ...hostileTexts])
    expect(readAges(text)).toEqual(Array(10).fill(null));
});
