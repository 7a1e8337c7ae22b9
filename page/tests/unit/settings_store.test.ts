import { afterEach, beforeEach, describe, expect, test, vi } from 'vitest';
import { SettingsStore } from '../../src/model/settings_store';

vi.mock('../../src/camera', () => ({ webService: 'http://camera.example/webservices.cgi', loginCheck: '' }));

/** What the camera holds; it writes scores with six digits. */
let held: Map<string, string>;
let uploads: number;
let downloads: number;
/** What holds the next answer up. */
let answer: () => Promise<unknown>;
/** What becomes of the next upload, before or after the camera has taken it. */
let before: () => Promise<unknown>;
let after: () => Promise<unknown>;
/** With which it answers an upload: of one that it refuses it takes the first element. */
let status: number;

const documentOf = (values: Map<string, string>) =>
  `<app>${[...values].map(([tag, value]) => `<${tag}>${value}</${tag}>`).join('')}</app>`;

async function camera(address: string, options: RequestInit = {}): Promise<Response> {
  if (address.includes('get_all_parameters')) {
    ++downloads;
    const told = documentOf(held);
    await answer();
    return new Response(told);
  }
  if (address.includes('get_analysis_resolution')) return new Response('1280x720');
  ++uploads;
  await before();
  for (const [, tag, value] of String(options.body).matchAll(/<(\w+)>([^<]*)<\/\1>/g)) {
    if (held.has(tag)) held.set(tag, tag === 'Sensitivity' ? Number(value).toFixed(6) : value);
    if (status !== 200) break;
  }
  await after();
  return new Response('', { status });
}

let store: SettingsStore;
const objects = (value: string): [string, string][] => [['MinNumberOfPeopleForTrigger', value]];
const edits = () => Object.fromEntries(store.edits);

beforeEach(async () => {
  held = new Map([
    ['MinNumberOfPeopleForTrigger', '1'],
    ['Sensitivity', '0.350000'],
    ['Occupants', '50'],
    ['Detection1_0', '0.000000'],
    ['CamName', 'Lobby'],
  ]);
  uploads = downloads = 0;
  status = 200;
  before = after = answer = async () => {};
  vi.stubGlobal('fetch', camera);
  store = new SettingsStore();
  await store.load();
  downloads = 0;
});
afterEach(() => vi.unstubAllGlobals());

test('what is saved is as the camera writes it, and no change any more', async () => {
  store.change([['Sensitivity', '0.4']]);
  await store.submit();
  expect(store.save.is).toBe('saved');
  expect(held.get('Sensitivity')).toBe('0.400000');
  expect([store.values.get('Sensitivity'), edits(), store.canUndo]).toEqual(['0.400000', {}, false]);
});

test('what is typed while a save runs stays, as an unsaved change', async () => {
  store.change(objects('2'));
  after = async () => {
    store.change(objects('23'));
    store.change([['CamName', 'Door']]);
    expect(store.save.is).toBe('saving');
  };
  await store.submit();
  expect([store.save.is, held.get('MinNumberOfPeopleForTrigger'), held.get('CamName')]).toEqual([
    'saved',
    '2',
    'Lobby',
  ]);
  expect(edits()).toEqual({ MinNumberOfPeopleForTrigger: '23', CamName: 'Door' });
  store.undo();
  expect(edits()).toEqual({});
  store.change(objects('24'));
  after = async () => {};
  await store.submit();
  expect(held.get('MinNumberOfPeopleForTrigger')).toBe('24');
});

test('what is put back while a save runs is a change to what was saved', async () => {
  store.change(objects('2'));
  before = async () => store.change(objects('1'));
  await store.submit();
  expect([held.get('MinNumberOfPeopleForTrigger'), edits()]).toEqual(['2', { MinNumberOfPeopleForTrigger: '1' }]);
});

test('while one save runs there is no second one', async () => {
  store.change(objects('2'));
  const both = [store.submit(), store.submit()];
  await Promise.all(both);
  expect(uploads).toBe(1);
});

test('a failed save keeps what was typed before and meanwhile', async () => {
  store.change(objects('2'));
  before = async () => {
    store.change([['CamName', 'Door']]);
    throw new TypeError('no network');
  };
  await store.submit();
  expect([store.save.is, edits()]).toEqual(['failed', { MinNumberOfPeopleForTrigger: '2', CamName: 'Door' }]);
});

test("after a save whose answer was lost, its values are nobody else's", async () => {
  const lost = async () => {
    throw new TypeError('no network');
  };
  after = lost;
  store.change([...objects('2'), ['Sensitivity', '0.4']]);
  await store.submit();
  expect([store.save.is, held.get('Sensitivity')]).toEqual(['failed', '0.400000']);
  store.change(objects('3'));
  await store.submit();
  expect([store.save.is, held.get('MinNumberOfPeopleForTrigger')]).toEqual(['failed', '3']);
  store.change(objects('4'));
  after = async () => {};
  await store.submit();
  expect([store.save.is, held.get('MinNumberOfPeopleForTrigger'), edits()]).toEqual(['saved', '4', {}]);
});

test('what somebody else has changed after a lost answer is still theirs', async () => {
  after = async () => {
    throw new TypeError('no network');
  };
  store.change(objects('2'));
  await store.submit();
  held.set('MinNumberOfPeopleForTrigger', '9');
  held.set('Occupants', '60');
  await store.submit();
  expect(store.save).toMatchObject({ is: 'conflict', theirs: ['MinNumberOfPeopleForTrigger', 'Occupants'] });
  after = async () => {};
  await store.saveMine();
  expect([held.get('MinNumberOfPeopleForTrigger'), held.get('Occupants')]).toEqual(['2', '60']);
});

test('what the camera holds otherwise than it was sent is named, and shown', async () => {
  store.change([...objects('2'), ['Sensitivity', '0.4']]);
  after = async () => held.set('MinNumberOfPeopleForTrigger', '1').set('CamName', 'Hall');
  await store.submit();
  expect(store.save).toEqual({ is: 'altered', tags: ['MinNumberOfPeopleForTrigger', 'CamName'] });
  expect([store.values.get('MinNumberOfPeopleForTrigger'), store.values.get('CamName'), edits()]).toEqual([
    '1',
    'Hall',
    {},
  ]);
});

test('of a refused save all is kept to be saved, over what the camera holds of it', async () => {
  status = 500;
  store.change([...objects('2'), ['Occupants', '60']]);
  await store.submit();
  expect([store.save.is, store.loaded!.get('MinNumberOfPeopleForTrigger'), edits()]).toEqual([
    'failed',
    '2',
    { MinNumberOfPeopleForTrigger: '2', Occupants: '60' },
  ]);
  status = 200;
  await store.submit();
  expect([store.save.is, held.get('MinNumberOfPeopleForTrigger'), held.get('Occupants')]).toEqual(['saved', '2', '60']);
});

test('a refused save that is discarded leaves what the camera holds', async () => {
  status = 500;
  store.change(objects('2'));
  await store.submit();
  store.discard();
  expect([store.values.get('MinNumberOfPeopleForTrigger'), edits()]).toEqual(['2', {}]);
});

test('discarded changes are brought back as one, and what was before them, too', async () => {
  store.change(objects('2'));
  store.change([['CamName', 'Door']]);
  store.discard();
  expect([store.save.is, edits()]).toEqual(['discarded', {}]);
  await store.load();
  expect(store.save.is).toBe('discarded');
  store.undo();
  expect([store.save.is, edits()]).toEqual(['idle', { MinNumberOfPeopleForTrigger: '2', CamName: 'Door' }]);
  store.undo();
  expect(edits()).toEqual({ MinNumberOfPeopleForTrigger: '2' });
});

test.each(['another tab is opened', 'others have saved'])('that something was saved is said until %s', async (what) => {
  store.change(objects('2'));
  await store.submit();
  await store.load();
  expect(store.save.is).toBe('saved');
  if (what === 'others have saved') held.set('Occupants', '60');
  else store.turnedTo();
  await store.load();
  expect(store.save.is).toBe('idle');
});

test('that a save failed is said on every tab', async () => {
  status = 503;
  store.change(objects('2'));
  await store.submit();
  store.turnedTo();
  expect(store.save.is).toBe('failed');
});

test('theirs are taken, or the question is left open', async () => {
  store.change(objects('2'));
  held.set('Occupants', '60');
  await store.submit();
  store.dismissConflict();
  expect([store.save.is, edits()]).toEqual(['idle', { MinNumberOfPeopleForTrigger: '2' }]);
  await store.submit();
  store.takeTheirs();
  expect([store.values.get('Occupants'), edits(), uploads]).toEqual(['60', {}, 0]);
});

test('what changes nothing is no step for undo', () => {
  store.change(objects('1'));
  expect(store.canUndo).toBe(false);
  store.change(objects('2'));
  store.change(objects('2'), 'typed');
  store.undo();
  expect([edits(), store.canUndo]).toEqual([{}, false]);
});

/** Holds answers up until it is told to let them go. */
function hold(): () => void {
  let go = () => {};
  const held = new Promise<void>((resolve) => (go = resolve));
  answer = () => held;
  return go;
}

test('of several wishes to read the settings one is enough', async () => {
  const go = hold();
  const all = [store.load(), store.load(), store.load()];
  go();
  await Promise.all(all);
  expect(downloads).toBe(1);
  await store.load();
  expect(downloads).toBe(2);
});

test('what others have saved is taken up, and nothing from before it can be undone', async () => {
  store.change(objects('2'));
  store.change(objects('1'));
  held.set('MinNumberOfPeopleForTrigger', '9');
  await store.load();
  expect([store.values.get('MinNumberOfPeopleForTrigger'), edits(), store.canUndo]).toEqual(['9', {}, false]);
});

test('with unsaved changes nothing is read, also where they came meanwhile', async () => {
  const go = hold();
  held.set('Occupants', '60');
  const reading = store.load();
  store.change(objects('2'));
  go();
  await reading;
  expect([store.values.get('Occupants'), edits()]).toEqual(['50', { MinNumberOfPeopleForTrigger: '2' }]);
  await store.load();
  expect(downloads).toBe(1);
  // So the save still finds what others have changed.
  await store.submit();
  expect(store.save).toMatchObject({ is: 'conflict', theirs: ['Occupants'] });
});

test('an answer that a save has overtaken is dropped', async () => {
  const go = hold();
  const reading = store.load();
  answer = async () => {};
  store.change(objects('2'));
  await store.submit();
  expect(store.save.is).toBe('saved');
  go();
  await reading;
  expect(store.values.get('MinNumberOfPeopleForTrigger')).toBe('2');
});

describe('an area that two people draw', () => {
  const outline = (area: string, value: string): [string, string][] =>
    Array.from({ length: 16 }, (_, i) => [`${area}_${i}`, value]);
  const drawn = (area: string) => [0, 1, 6].map((i) => held.get(`${area}_${i}`));
  beforeEach(async () => {
    held = new Map([
      ...held,
      ['DetectionControlPoints', '4'],
      ...outline('Detection1', '0.1'),
      ...outline('Detection2', '0.2'),
      ...outline('Entrance1', '0.3'),
    ]);
    await store.load();
  });

  test('is saved whole as it was drawn here', async () => {
    store.change([['Detection1_0', '0.5']]);
    for (const tag of ['Detection1_6', 'Detection2_6', 'Entrance1_6']) held.set(tag, '0.9');
    await store.submit();
    expect(store.save.is).toBe('conflict');
    const mine = store.mineOver(held);
    expect(
      ['Detection1_6', 'Detection2_6', 'Entrance1_6', 'DetectionControlPoints'].filter((tag) => mine.has(tag)),
    ).toEqual(['Detection1_6']);
    await store.saveMine();
    expect([drawn('Detection1'), drawn('Detection2'), drawn('Entrance1')]).toEqual([
      ['0.5', '0.1', '0.1'],
      ['0.2', '0.2', '0.9'],
      ['0.3', '0.3', '0.9'],
    ]);
    expect([store.save.is, edits()]).toEqual(['saved', {}]);
  });

  test('is taken whole as it was drawn there', async () => {
    store.change([['Detection1_0', '0.5']]);
    held.set('Detection1_6', '0.9');
    await store.submit();
    store.takeTheirs();
    expect([store.values.get('Detection1_0'), store.values.get('Detection1_6'), edits(), uploads]).toEqual([
      '0.1',
      '0.9',
      {},
      0,
    ]);
  });

  test.each([
    ['there', '4', '5'],
    ['here', '5', '4'],
  ])('with another number of corners %s is of one piece with the others of its kind', async (_, mine, theirs) => {
    store.change([
      ['Detection1_0', '0.5'],
      ['DetectionControlPoints', mine],
    ]);
    held.set('DetectionControlPoints', theirs);
    held.set('Detection2_6', '0.9');
    held.set('Entrance1_6', '0.9');
    await store.submit();
    expect(store.save.is).toBe('conflict');
    expect([store.mineOver(held).has('DetectionControlPoints'), store.mineOver(held).has('Detection2_6')]).toEqual([
      true,
      true,
    ]);
    await store.saveMine();
    expect([held.get('DetectionControlPoints'), drawn('Detection1'), drawn('Detection2'), drawn('Entrance1')]).toEqual([
      mine,
      ['0.5', '0.1', '0.1'],
      ['0.2', '0.2', '0.2'],
      ['0.3', '0.3', '0.9'],
    ]);
  });
});
