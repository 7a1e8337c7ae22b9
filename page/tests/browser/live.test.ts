import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { describe, expect, test } from 'vitest';
import { ask, building, eventually, expectText, isMissing, open, opened, show, useBrowser } from './browser';

/** One grey pixel. */
const kJpeg = Buffer.from(
  '/9j/4AAQSkZJRgABAQEASABIAAD/2wBDAAMCAgICAgMCAgIDAwMDBAYEBAQEBAgGBgUGCQgKCgkICQkKDA8MCgsOCwkJDRENDg8QEBEQCgwSExIQEw8QEBD/wAALCAABAAEBAREA/8QAFAABAAAAAAAAAAAAAAAAAAAACf/EABQQAQAAAAAAAAAAAAAAAAAAAAD/2gAIAQEAAD8AVN//2Q==',
  'base64',
);

describe.skipIf(isMissing)('Live', () => {
  useBrowser();

  test('shows the figures that the camera tells', async () => {
    const page = await opened('live');
    for (const [testid, action] of [['occupancy', 'get_occupancy_count'], ['building', 'get_total_occupancy'], ['crowd-2', 'get_crowd_2'], ['crowd-building', 'get_total_crowd']]) {
      await eventually(
        async () => [await page.getByTestId(testid).textContent(), await ask(page, action)],
        ([shown, told]) => shown === told,
      );
    }
    await expectText(page, 'status', /^(Running|Area event active|Area 1 event active|Slow)$/);
    // Somebody stands in the area now and then.
    await expectText(page, 'crowd-1', /^[1-9]\d*$/);
  });

  test('shows each follower with its status, crowd and the age of its answer', async () => {
    const page = await opened('live');
    const rows = page.getByTestId('cameras').locator('tbody tr');
    await eventually(() => rows.count(), (count) => count === 3);
    for (const follower of ['Follower 1', 'Follower 2']) {
      const row = rows.filter({ hasText: follower });
      await row.filter({ hasText: /Running|active|Slow/ }).waitFor();
      await eventually(async () => row.locator('td').allTextContents(), ([, crowd, age]) => /^\d+$/.test(crowd) && age === 'now');
    }
  });

  test('a follower that does not answer has words and no count', async () => {
    const panel = '<app><TotalOcc>4</TotalOcc><NameCam_0>Here</NameCam_0><NameCam_1>Gone</NameCam_1><AOICam_0>1</AOICam_0><AOICam_1>-1</AOICam_1>' +
      '<ActiveCam_1>1</ActiveCam_1><StatusCam_0>Running</StatusCam_0><StatusCam_1>No connection error</StatusCam_1></app>';
    const page = await open({}, (one) => one.route('**/*action=get_data_panel_info', (route) => route.fulfill({ contentType: 'text/xml', body: panel })));
    await show(page, 'live');
    const row = page.getByTestId('cameras').locator('tbody tr').filter({ hasText: 'Gone' });
    await eventually(() => row.locator('td').allTextContents(), (cells) => cells.join('|') === 'No connection error|–|none yet');
  });

  test('tells who comes and goes as it happens', async () => {
    const page = await opened('live');
    await expectText(page, 'came-in', /^[1-9]/);
    await page.getByText(/\d object(s)? came in through entrance [12]/).first().waitFor();
  });

  test('a reset asks first', async () => {
    const page = await opened('live');
    const asked: string[] = [];
    page.on('request', (request) => asked.push(request.url()));
    await expectText(page, 'occupancy', /^[1-9]/);
    await page.getByRole('button', { name: 'Reset this camera' }).click();
    await page.getByRole('dialog').getByRole('button', { name: 'Cancel' }).click();
    await page.getByRole('dialog').waitFor({ state: 'detached' });
    expect(asked.filter((url) => url.includes('reset'))).toEqual([]);

    await page.getByRole('button', { name: 'Reset this camera' }).click();
    await page.getByRole('dialog').waitFor();
    await page.keyboard.press('Escape');
    await page.getByRole('dialog').waitFor({ state: 'detached' });
    expect(asked.filter((url) => url.includes('reset'))).toEqual([]);

    await page.getByRole('button', { name: 'Reset this camera' }).click();
    await page.getByRole('dialog').getByRole('button', { name: 'Reset this camera' }).click();
    await expectText(page, 'reset-said', /has been reset/);
    await page.getByRole('button', { name: 'Reset the building' }).click();
    await page.getByRole('dialog').getByRole('button', { name: 'Reset the building' }).click();
    await expectText(page, 'reset-said', /has been reset/);
    expect(asked.filter((url) => /action=reset_(total_)?occupancy$/.test(url)).length).toBe(2);
    expect(await ask(page, 'get_logfile_as_plain_text')).toContain('Total occupancy reset.');
  });

  test.each([
    ['All areas', 'Breached'], ['Area 1', 'Area1Alert'], ['Area 2', 'Area2Alert'], ['Area 3', 'Area3Alert'], ['Occupancy', 'OccupancyAlert'],
  ])('the alert "%s" is raised and cleared by hand', async (name, topic) => {
    const page = await opened('live');
    const events = () =>
      readFileSync(join(building!.state, 'events.jsonl'), 'utf8').split('\n').filter((line) => line.includes(topic)).map((line) => JSON.parse(line).active as boolean);
    const before = events().length;
    await page.getByRole('button', { name: `Raise the alert: ${name}` }).click();
    await expectText(page, 'alert-said', new RegExp(`^Alert raised: ${name}`));
    await page.getByRole('button', { name: `Clear the alert: ${name}` }).click();
    await expectText(page, 'alert-said', new RegExp(`^Alert cleared: ${name}`));
    // The camera's own rules raise and clear alerts, too.
    await eventually(async () => events().slice(before), (states) => states.includes(true) && states.includes(false));
  });

  test('shows the live picture as a stream', async () => {
    const page = await open({}, (one) => one.route('**/live/video.mjpg*', (route) => route.fulfill({ contentType: 'image/jpeg', body: kJpeg })));
    await show(page, 'live');
    const image = page.getByRole('img', { name: 'Live picture' });
    await eventually(() => image.evaluate((element: HTMLImageElement) => element.naturalWidth), (width) => width === 1);
    expect(await image.getAttribute('src')).toContain('resolution=1280x720');
    await eventually(() => page.getByText('No picture').count(), (count) => count === 0);
    await page.getByLabel('Picture size').selectOption('640x360');
    await eventually(() => image.getAttribute('src'), (src) => src!.includes('resolution=640x360'));
  });

  test('shows single pictures where no stream comes', async () => {
    const page = await open({}, async (one) => {
      await one.route('**/live/video.mjpg*', (route) => route.fulfill({ status: 404 }));
      await one.route('**/live/image.jpg*', (route) => route.fulfill({ contentType: 'image/jpeg', body: kJpeg }));
    });
    await show(page, 'live');
    await eventually(() => page.getByRole('img', { name: 'Live picture' }).getAttribute('src').catch(() => ''), (src) => src!.startsWith('blob:'));
  });

  test.each([
    [404, 'text/html', '<h1>404</h1>', 'This camera offers no live picture to this page.'],
    [403, 'text/plain', 'the anonymised stream is never shown without its overlays\n', 'the anonymised stream is never shown without its overlays'],
    [503, 'text/plain', '', 'The camera has no picture at the moment.'],
    [503, 'text/plain', '<b>the source is lost</b>', '<b>the source is lost</b>'],
  ])('says why there is no picture: %d %s %j', async (status, contentType, body, words) => {
    const page = await open({}, (one) => one.route('**/live/**', (route) => route.fulfill({ status, contentType, body })));
    await show(page, 'live');
    await page.getByText('No picture', { exact: true }).waitFor();
    await page.getByText(words).waitFor();
  });
});
