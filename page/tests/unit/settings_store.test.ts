import { afterEach, beforeEach, expect, test, vi } from 'vitest';
import { SettingsStore } from '../../src/model/settings_store';

vi.mock('../../src/camera', () => ({ webService: 'http://camera.example/webservices.cgi', loginCheck: '' }));

/** What the camera holds; it writes scores with six digits. */
let held: Map<string, string>;
let uploads: number;
/** What becomes of the next upload, before or after the camera has taken it. */
let before: () => Promise<unknown>;
let after: () => Promise<unknown>;

const documentOf = (values: Map<string, string>) => `<app>${[...values].map(([tag, value]) => `<${tag}>${value}</${tag}>`).join('')}</app>`;

async function camera(address: string, options: RequestInit = {}): Promise<Response> {
  if (address.includes('get_all_parameters')) return new Response(documentOf(held));
  if (address.includes('get_analysis_resolution')) return new Response('1280x720');
  ++uploads;
  await before();
  for (const [, tag, value] of String(options.body).matchAll(/<(\w+)>([^<]*)<\/\1>/g)) {
    if (held.has(tag)) held.set(tag, tag === 'Sensitivity' ? Number(value).toFixed(6) : value);
  }
  await after();
  return new Response('');
}

let store: SettingsStore;
const objects = (value: string): [string, string][] => [['MinNumberOfPeopleForTrigger', value]];
const edits = () => Object.fromEntries(store.edits);

beforeEach(async () => {
  held = new Map([['MinNumberOfPeopleForTrigger', '1'], ['Sensitivity', '0.350000'], ['Occupants', '50'], ['Detection1_0', '0.000000'], ['CamName', 'Lobby']]);
  uploads = 0;
  before = after = async () => {};
  vi.stubGlobal('fetch', camera);
  store = new SettingsStore();
  await store.load();
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
  expect([store.save.is, held.get('MinNumberOfPeopleForTrigger'), held.get('CamName')]).toEqual(['saved', '2', 'Lobby']);
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

test('after a save whose answer was lost, its values are nobody else\'s', async () => {
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
