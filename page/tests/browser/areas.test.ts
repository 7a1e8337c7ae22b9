import { Page } from 'playwright-core';
import { describe, expect, test } from 'vitest';
import {
  ask,
  eventually,
  expectText,
  focused,
  isMissing,
  opened,
  reload,
  save,
  show,
  store,
  stored,
  useBrowser,
} from './browser';

const details = (page: Page) => page.getByTestId('area-details');
const choose = (page: Page, kind: string, name: string) =>
  page
    .getByRole('group', { name: kind })
    .getByRole('button', { name: new RegExp(`^${name}`) })
    .click();
const corners = (page: Page, area: string) => page.getByTestId(`area-${area}`).locator('.corner');

async function points(page: Page, area: string): Promise<[number, number][]> {
  const text = await page.getByTestId(`area-${area}`).locator('polygon').getAttribute('points');
  return text!.split(' ').map((pair) => pair.split(',').map(Number) as [number, number]);
}

/** Where a fraction of the picture is on the screen. */
async function spot(page: Page, x: number, y: number): Promise<{ x: number; y: number }> {
  const frame = (await page.locator('svg.editor').boundingBox())!;
  return { x: frame.x + x * frame.width, y: frame.y + y * frame.height };
}

async function drag(page: Page, area: string, corner: number, x: number, y: number): Promise<void> {
  await page.locator('svg.editor').scrollIntoViewIfNeeded();
  const box = (await corners(page, area).nth(corner).locator('.grip').boundingBox())!;
  await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
  await page.mouse.down();
  const to = await spot(page, x, y);
  await page.mouse.move(to.x, to.y, { steps: 5 });
  await page.mouse.up();
}

async function drawRectangle(page: Page, area: string, [left, top, right, bottom]: number[]): Promise<void> {
  for (const [i, [x, y]] of [
    [left, top],
    [right, top],
    [right, bottom],
    [left, bottom],
  ].entries())
    await drag(page, area, i, x, y);
}

const kUsual = {
  DetectionControlPoints: '4',
  EntrancesControlPoints: '4',
  Detection1_Active: '1',
  Detection2_Active: '0',
  Exclusion1_Active: '0',
  IsCameraInside: '0',
  LocatorAtBottom: '0',
  Detection1_0: '0.28',
  Detection1_1: '0.42',
  Detection1_2: '0.55',
  Detection1_3: '0.42',
  Detection1_4: '0.55',
  Detection1_5: '0.72',
  Detection1_6: '0.28',
  Detection1_7: '0.72',
};

/** The tab over the usual areas. */
/** What the camera itself takes for a look may be too slow for an area while the machine is busy. */
const quick = (page: Page) =>
  page.route('**/*action=get_execution_time', (route) => route.fulfill({ contentType: 'text/plain', body: '20' }));

async function areas(options = {}): Promise<Page> {
  const page = await opened('areas', options, quick);
  await store(page, kUsual);
  await reload(page);
  await corners(page, 'Detection1').first().waitFor();
  return page;
}

describe.skipIf(isMissing)('Areas', () => {
  useBrowser();

  test('an area that is drawn, saved and loaded again changes what is counted', async () => {
    const page = await areas();
    await drawRectangle(page, 'Detection1', [0, 0, 0.04, 0.04]);
    await expectText(page, 'save-state', /unsaved change/);
    await save(page);
    await reload(page);
    await corners(page, 'Detection1').first().waitFor();
    const size = { width: 1280, height: 720 };
    expect(
      Math.max(...(await points(page, 'Detection1')).map(([x, y]) => Math.max(x / size.width, y / size.height))),
    ).toBeLessThan(0.05);
    await show(page, 'live');
    await eventually(
      () => ask(page, 'get_data_panel_info'),
      (panel) => panel.includes('<AOICam_0>0<'),
    );
    await expectText(page, 'crowd-1', /^0$/);

    // Three at once stand nowhere but in the whole picture.
    await show(page, 'areas');
    await drawRectangle(page, 'Detection1', [0, 0, 1, 1]);
    await save(page);
    await show(page, 'live');
    await expectText(page, 'crowd-1', /^([3-9]|\d\d)$/);
  });

  test('a whole area is dragged and stays in the picture', async () => {
    const page = await areas();
    const before = await points(page, 'Detection1');
    const from = await spot(page, 0.32, 0.66);
    await page.mouse.move(from.x, from.y);
    await page.mouse.down();
    await page.mouse.move(from.x + 4000, from.y, { steps: 3 });
    await page.mouse.up();
    const after = await points(page, 'Detection1');
    expect(Math.max(...after.map(([x]) => x))).toBe(1279);
    const [by] = [after[0][0] - before[0][0]];
    expect(after).toEqual(before.map(([x, y]) => [x + by, y]));
  });

  test('works with the keyboard alone', async () => {
    const page = await areas();
    const before = await points(page, 'Detection1');
    await corners(page, 'Detection1').nth(1).focus();
    await page.keyboard.press('ArrowRight');
    await page.keyboard.press('Shift+ArrowUp');
    const moved = await points(page, 'Detection1');
    expect(moved[1][0]).toBeGreaterThan(before[1][0]);
    expect(before[1][1] - moved[1][1]).toBeGreaterThan(moved[1][0] - before[1][0]);
    expect([moved[0], moved[2], moved[3]]).toEqual([before[0], before[2], before[3]]);
    await page.keyboard.press('Insert');
    expect((await points(page, 'Detection1')).length).toBe(5);
    await page.keyboard.press('Delete');
    expect((await points(page, 'Detection1')).length).toBe(4);
    await page.keyboard.press('Control+z');
    await page.keyboard.press('Control+z');
    await page.keyboard.press('Control+z');
    expect(await points(page, 'Detection1')).toEqual(before);
    await page.getByTestId('area-Detection1').locator('polygon').focus();
    await page.keyboard.press('ArrowDown');
    const whole = await points(page, 'Detection1');
    expect(whole.every(([x, y], i) => x === before[i][0] && y > before[i][1])).toBe(true);
  });

  test('another area is taken up with the keyboard alone, and every key of a corner works', async () => {
    const page = await areas();
    await store(page, { Entrance1_Active: '1', Entrance2_Active: '1' });
    await reload(page);
    await corners(page, 'Detection1').last().waitFor();
    await corners(page, 'Detection1').last().focus();
    await page.keyboard.press('Tab');
    expect(await focused(page)).toBe('Entrance 1, move as a whole');
    await page.keyboard.press('Tab');
    const before = await points(page, 'Entrance1');
    const at = () => points(page, 'Entrance1').then((all) => all[0]);
    for (const [key, dx, dy] of [
      ['ArrowLeft', -1, 0],
      ['ArrowUp', 0, -1],
      ['ArrowRight', 1, 0],
      ['ArrowDown', 0, 1],
    ] as const) {
      const [x, y] = await at();
      await page.keyboard.press(key);
      const [toX, toY] = await at();
      expect([Math.sign(toX - x), Math.sign(toY - y)]).toEqual([dx, dy]);
      expect(await focused(page)).toMatch(/^Entrance 1, corner 1, at/);
    }
    expect(await points(page, 'Entrance1')).toEqual(before);
    await page.keyboard.press('+');
    expect((await points(page, 'Entrance1')).length).toBe(5);
    expect(await focused(page)).toMatch(/^Entrance 1, corner 1, at/);
    for (let i = 0; i < 4; ++i) await page.keyboard.press('Tab');
    expect((await points(page, 'Entrance1')).length).toBe(5);
    await corners(page, 'Entrance1').last().focus();
    await page.keyboard.press('Backspace');
    // Entrance 2 is in use, too.
    await page.getByRole('dialog', { name: 'Remove a corner of Entrance 1?' }).waitFor();
    await page.keyboard.press('Tab');
    await page.keyboard.press('Enter');
    await page.getByRole('dialog').waitFor({ state: 'detached' });
    expect((await points(page, 'Entrance1')).length).toBe(4);
    expect(await focused(page)).toBe('Entrance 1, move as a whole');
    await page.keyboard.press('Shift+Tab');
    expect(await focused(page)).toBe('Area 1, move as a whole');
  });

  test('of areas that lie on one another the chosen one is taken, and the pointer is not lost', async () => {
    const page = await areas();
    await store(page, {
      Detection2_Active: '1',
      ...Object.fromEntries(
        [0.28, 0.42, 0.55, 0.42, 0.55, 0.72, 0.28, 0.72].map((value, i) => [`Detection2_${i}`, String(value)]),
      ),
    });
    await reload(page);
    await corners(page, 'Detection1').first().waitFor();
    // Area 2 comes later in the document and covers area 1 whole.
    const first = await points(page, 'Detection1');
    await drag(page, 'Detection1', 0, 0.1, 0.1);
    expect((await points(page, 'Detection1'))[0]).not.toEqual(first[0]);
    expect(await points(page, 'Detection2')).toEqual(first);
    const from = await spot(page, 0.5, 0.6);
    await page.mouse.move(from.x, from.y);
    await page.mouse.down();
    await page.mouse.move(from.x + 50, from.y, { steps: 4 });
    await page.mouse.up();
    expect(await points(page, 'Detection2')).toEqual(first);
    // Elsewhere a press takes the area that is there, and drags it in the same go.
    await page.getByRole('button', { name: 'Discard all' }).click();
    await choose(page, 'Entrances', 'Entrance 2');
    await page.mouse.move(from.x, from.y);
    await page.mouse.down();
    await page.mouse.move(from.x + 50, from.y, { steps: 4 });
    await page.mouse.up();
    expect((await points(page, 'Detection2'))[0][0]).toBeGreaterThan(first[0][0]);
    expect(await details(page).locator('h2').textContent()).toBe('Area 2');
    await store(page, kUsual);
  });

  test('tells what an entrance would have counted while its line is dragged', async () => {
    const asked: { camera_inside: boolean; entrance1?: [number, number][] }[] = [];
    const page = await opened('areas', {}, async (one) => {
      await quick(one);
      await one.route('**/*action=recount*', (route) => {
        asked.push(route.request().postDataJSON());
        const told = (cameIn: number, wentOut: number) =>
          ['in', 'out'].map((direction) => ({
            entrance: 1,
            direction,
            class: 'Person',
            count: direction === 'in' ? cameIn : wentOut,
          }));
        return route.fulfill({
          contentType: 'application/json',
          body: JSON.stringify({ counts: told(131 + asked.length, 128), recorded: told(140, 129), without_path: 0 }),
        });
      });
    });
    await store(page, { ...kUsual, Entrance1_Active: '1' });
    await reload(page);
    await choose(page, 'Entrances', 'Entrance 1');
    expect(asked).toEqual([]);
    await drag(page, 'Entrance1', 0, 0.3, 0.3);
    await page.getByText(/^Entrance 1 with this line yesterday: \d+ in, 128 out \(as it is: 140, 129\)\.$/).waitFor();
    await eventually(
      async () => asked.at(-1)!.entrance1![0],
      ([x, y]) => Math.abs(x - 0.3) < 0.02 && Math.abs(y - 0.3) < 0.02,
    );
    await page.getByLabel('The camera is inside').check();
    await eventually(
      async () => asked.at(-1)!.camera_inside,
      (inside) => inside,
    );
    await page.getByRole('button', { name: 'Discard all' }).click();
    await eventually(
      () => page.getByTestId('recount').count(),
      (count) => count === 0,
    );
  });

  test('the camera itself counts again with an entrance as it is drawn', async () => {
    const page = await opened('areas', {}, quick);
    await store(page, { ...kUsual, Entrance1_Active: '1' });
    await reload(page);
    await choose(page, 'Entrances', 'Entrance 1');
    const answer = page.waitForResponse((response) => /action=(recount|ledger_answer)/.test(response.url()));
    await drag(page, 'Entrance1', 0, 0.3, 0.3);
    expect((await answer).ok()).toBe(true);
    await page
      .getByTestId('recount')
      .filter({ hasText: /with this line|Nobody has crossed/ })
      .waitFor();
    await page.getByRole('button', { name: 'Discard all' }).click();
  });

  test('works with a finger', async () => {
    const page = await areas({ hasTouch: true, viewport: { width: 390, height: 800 }, isMobile: true });
    await page.locator('svg.editor').scrollIntoViewIfNeeded();
    const box = (await corners(page, 'Detection1').nth(2).locator('.grip').boundingBox())!;
    const from = { x: box.x + box.width / 2 + 4, y: box.y + box.height / 2 + 4 };
    const before = await points(page, 'Detection1');
    const session = await page.context().newCDPSession(page);
    await session.send('Input.dispatchTouchEvent', { type: 'touchStart', touchPoints: [from] });
    for (const step of [10, 20, 30])
      await session.send('Input.dispatchTouchEvent', {
        type: 'touchMove',
        touchPoints: [{ x: from.x + step, y: from.y + step }],
      });
    await session.send('Input.dispatchTouchEvent', { type: 'touchEnd', touchPoints: [] });
    const after = await points(page, 'Detection1');
    expect(after[2][0]).toBeGreaterThan(before[2][0] + 50);
    expect(after[2][1]).toBeGreaterThan(before[2][1] + 30);
    expect(after[0]).toEqual(before[0]);
  });

  test('corners are added and removed, from three to eight, for all areas of the kind', async () => {
    const page = await areas();
    const add = details(page).getByRole('button', { name: 'Add corner' });
    const remove = details(page).getByRole('button', { name: 'Remove corner' });
    await add.focus();
    for (let i = 0; i < 5; ++i) await page.keyboard.press('Enter');
    expect((await points(page, 'Detection1')).length).toBe(8);
    expect([await add.isDisabled(), await focused(page)]).toEqual([true, 'Add corner']);
    await choose(page, 'Detection areas', 'Area 2');
    expect((await points(page, 'Detection2')).length).toBe(8);
    // Area 1 is in use, and loses each time a corner with it.
    for (let i = 0; i < 5; ++i) {
      await remove.click();
      const question = page.getByRole('dialog', { name: 'Remove a corner of Area 2?' });
      await question.getByText('All areas of a kind have the same number of corners: Area 1 loses one, too').waitFor();
      if (i === 0) {
        await question.getByRole('button', { name: 'Cancel' }).click();
        expect((await points(page, 'Detection1')).length).toBe(8);
        await remove.click();
      }
      await question.getByRole('button', { name: 'Remove corner' }).click();
    }
    expect((await points(page, 'Detection2')).length).toBe(3);
    expect([await remove.isDisabled(), await focused(page)]).toEqual([true, 'Remove corner']);
    await save(page);
    expect(await stored(page, 'DetectionControlPoints')).toBe('3');

    await choose(page, 'Entrances', 'Entrance 1');
    await page.getByRole('button', { name: 'Entrance 1, add a corner after corner 1', exact: true }).click();
    expect((await points(page, 'Entrance1')).length).toBe(5);
    await choose(page, 'Exclusions', 'Exclusion 1');
    expect(await details(page).getByRole('button', { name: 'Add corner' }).count()).toBe(0);
    expect((await points(page, 'Exclusion1')).length).toBe(4);
  });

  test('a chosen corner that is taken back is chosen no more', async () => {
    const page = await areas();
    const before = await points(page, 'Detection1');
    const takeBack = async () => {
      await page.getByRole('button', { name: 'Area 1, add a corner after corner 4', exact: true }).click();
      expect((await points(page, 'Detection1')).length).toBe(5);
      await page.getByRole('button', { name: 'Undo' }).click();
      expect(await points(page, 'Detection1')).toEqual(before);
    };
    await takeBack();
    await details(page).getByRole('button', { name: 'Remove corner' }).click();
    const removed = await points(page, 'Detection1');
    expect([
      removed.length,
      removed.every((point) => before.some(([x, y]) => x === point[0] && y === point[1])),
    ]).toEqual([3, true]);
    await page.getByRole('button', { name: 'Undo' }).click();
    await takeBack();
    await details(page).getByRole('button', { name: 'Add corner' }).click();
    expect((await points(page, 'Detection1')).length).toBe(5);
  });

  test('areas of every kind are switched on and drawn', async () => {
    const page = await areas();
    await details(page).getByLabel('Alert after').fill('17');
    await choose(page, 'Exclusions', 'Exclusion 1');
    await details(page).getByLabel('Exclusion 1 in use').check();
    await drawRectangle(page, 'Exclusion1', [0.1, 0.1, 0.2, 0.3]);
    await choose(page, 'Entrances', 'Entrance 3');
    await details(page).getByLabel('Entrance 3 in use').check();
    await drawRectangle(page, 'Entrance3', [0.02, 0.5, 0.15, 0.95]);
    await choose(page, 'Entrances', 'Entrance 2');
    await details(page).getByLabel('Entrance 2 in use').uncheck();
    await save(page);
    const told = async (tag: string) => Number(await stored(page, tag));
    expect(await told('Detection1ThreshSeconds')).toBe(17);
    expect(await told('Exclusion1_Active')).toBe(1);
    expect(await told('Exclusion1_4')).toBeCloseTo(0.2, 2);
    expect(await told('Exclusion1_5')).toBeCloseTo(0.3, 2);
    expect(await told('Entrance3_Active')).toBe(1);
    expect(await told('Entrance3_0')).toBeCloseTo(0.02, 2);
    expect(await told('Entrance2_Active')).toBe(0);
    await store(page, {
      Entrance2_Active: '1',
      Entrance3_Active: '0',
      Exclusion1_Active: '0',
      Detection1ThreshSeconds: '4',
    });
  });

  test('the direction that counts as entering and the locator point are chosen in words', async () => {
    const page = await areas();
    await page.getByText('Stepping from the scene into an entrance counts as entering').waitFor();
    await page.getByLabel('The camera is inside').check();
    await page.getByText('Stepping out of an entrance into the scene counts as entering').waitFor();
    await page.getByRole('img', { name: /point that counts: At the centre/ }).waitFor();
    await page.getByLabel('At the bottom of its box').check();
    await page.getByRole('img', { name: /point that counts: At the bottom/ }).waitFor();
    await save(page);
    expect([await stored(page, 'IsCameraInside'), await stored(page, 'LocatorAtBottom')]).toEqual(['1', '1']);
    await store(page, kUsual);
  });

  test('warns of areas that cannot count well', async () => {
    const page = await areas();
    const warnings = page.getByTestId('warnings').locator('li');
    expect(await warnings.count()).toBe(0);
    await drag(page, 'Detection1', 0, 0.7, 0.6);
    await warnings.filter({ hasText: 'crosses itself' }).waitFor();
    await expectText(page, 'save-warning', /^Area 1: .*crosses itself/);
    await page.getByRole('button', { name: 'Undo' }).click();
    expect(await warnings.count()).toBe(0);
    await drawRectangle(page, 'Detection1', [0.4, 0.4, 0.41, 0.9]);
    await warnings.filter({ hasText: 'between two looks' }).waitFor();
    await page.getByRole('button', { name: 'Area 1, unsaved changes, has warnings, see below', exact: true }).waitFor();
    await page.getByRole('button', { name: 'Discard all' }).click();
    expect(await warnings.count()).toBe(0);
    await store(page, { Detection1_2: '1.2' });
    await reload(page);
    await warnings.filter({ hasText: 'reaches beyond the picture' }).waitFor();
    expect(await page.getByTestId('save-warning').count()).toBe(0);
    await store(page, kUsual);
  });

  test('warns when the camera becomes too slow for an area', async () => {
    const page = await areas();
    let time = '100';
    await page.route('**/*action=get_execution_time', (route) =>
      route.fulfill({ contentType: 'text/plain', body: time }),
    );
    const warnings = page.getByTestId('warnings').locator('li');
    expect(await warnings.count()).toBe(0);
    time = '2000';
    await warnings.filter({ hasText: 'between two looks' }).waitFor();
  });

  test('a corner that is taken back leaves the focus to its area', async () => {
    const page = await areas();
    await corners(page, 'Detection1').last().focus();
    await page.keyboard.press('Insert');
    await corners(page, 'Detection1').last().focus();
    expect(await focused(page)).toMatch(/^Area 1, corner 5, at/);
    await page.keyboard.press('Control+z');
    expect(await focused(page)).toBe('Area 1, move as a whole');
  });

  test('each part of an area is one stop of the keyboard, and the chosen grip has the colour of its area', async () => {
    const page = await areas();
    const area = page.getByTestId('area-Detection1');
    await area.locator('polygon').focus();
    const inside = () => page.evaluate(() => document.activeElement!.closest('svg.editor') !== null);
    let stops = 0;
    for (; await inside(); ++stops) await page.keyboard.press('Tab');
    // Each area is taken up with the focus, and has its corners then.
    const parts = await page
      .locator('svg.editor polygon')
      .evaluateAll((all) => all.map((polygon) => 1 + polygon.getAttribute('points')!.split(' ').length));
    expect(stops).toBe(parts.reduce((sum, count) => sum + count));
    await area.locator('polygon').focus();
    await corners(page, 'Detection1').first().focus();
    const seen = await page.evaluate(() =>
      ['.on-top .chosen .grip', '[data-testid=area-Detection1] polygon'].map((what, i) => {
        const { fill, stroke } = getComputedStyle(document.querySelector(what)!);
        return i === 0 ? fill : stroke;
      }),
    );
    expect(seen).toEqual(['rgb(57, 198, 230)', 'rgb(57, 198, 230)']);
  });

  test('a narrow exclusion is nothing to warn of: nobody is counted by stepping into it', async () => {
    const page = await areas();
    await choose(page, 'Exclusions', 'Exclusion 1');
    await drawRectangle(page, 'Exclusion1', [0.4, 0.4, 0.41, 0.9]);
    expect(await page.getByTestId('warnings').locator('li').count()).toBe(0);
    // That would be warned of there, too.
    await drag(page, 'Exclusion1', 1, 0.2, 0.6);
    await page.getByTestId('warnings').locator('li').filter({ hasText: 'crosses itself' }).waitFor();
  });

  test('Enter goes into an area and out again, and the arrow keys come through screen readers', async () => {
    const page = await areas();
    const area = page.getByRole('application', { name: 'Areas on the picture' });
    await area.getByRole('button', { name: 'Area 1, move as a whole' }).focus();
    await page.keyboard.press('Enter');
    expect(await focused(page)).toMatch(/^Area 1, corner 1,/);
    await page.keyboard.press('Space');
    expect(await focused(page)).toBe('Area 1, move as a whole');
    expect(await page.getByRole('button', { name: 'Undo' }).count()).toBe(0);
  });

  test('Ctrl+Z means the settings only where they are seen', async () => {
    const page = await areas();
    await corners(page, 'Detection1').first().focus();
    await page.keyboard.press('ArrowRight');
    const [drawn] = [await points(page, 'Detection1')];
    await page.evaluate(() => (location.hash = '#/live'));
    await page.getByRole('button', { name: 'Reset this camera' }).waitFor();
    await page.keyboard.press('Control+z');
    await page.evaluate(() => (location.hash = '#/advanced'));
    await page.getByRole('button', { name: 'Clear log' }).click();
    await page.getByRole('dialog').waitFor();
    await page.keyboard.press('Control+z');
    await page.keyboard.press('Escape');
    await page.evaluate(() => (location.hash = '#/detection'));
    await page.getByLabel('Number of people or vehicles').focus();
    await page.keyboard.press('Control+z');
    await page.evaluate(() => (location.hash = '#/areas'));
    expect(await points(page, 'Detection1')).toEqual(drawn);
    await page.keyboard.press('Control+z');
    await eventually(
      () => points(page, 'Detection1'),
      (now) => now[0][0] < drawn[0][0],
    );
  });

  test('the corners of an area at the edge of the picture are seen whole', async () => {
    const page = await areas();
    await drawRectangle(page, 'Detection1', [0, 0, 1, 1]);
    await page.locator('svg.editor').scrollIntoViewIfNeeded();
    for (const corner of ['corner-1', 'corner-2', 'corner-4']) {
      const grip = (await page.getByTestId(corner).locator('.grip').boundingBox())!;
      const outer = { x: corner === 'corner-2' ? grip.x + grip.width - 2 : grip.x + 2, y: grip.y + grip.height / 2 };
      expect(
        await page.evaluate(
          ({ x, y }) => document.elementFromPoint(x, y)?.closest('.corner')?.getAttribute('data-testid'),
          outer,
        ),
      ).toBe(corner);
    }
  });

  test('a finger on the picture scrolls, but on the chosen area draws', async () => {
    const page = await areas({ hasTouch: true, viewport: { width: 390, height: 600 }, isMobile: true });
    await choose(page, 'Entrances', 'Entrance 2');
    await page.evaluate(() => scrollTo(0, 0));
    const before = await points(page, 'Detection1');
    const session = await page.context().newCDPSession(page);
    const swipe = async (dy: number) => {
      const from = await spot(page, 0.4, 0.6);
      await session.send('Input.dispatchTouchEvent', { type: 'touchStart', touchPoints: [from] });
      for (const step of [1, 2, 3, 4])
        await session.send('Input.dispatchTouchEvent', {
          type: 'touchMove',
          touchPoints: [{ x: from.x, y: from.y + (dy * step) / 4 }],
        });
      await session.send('Input.dispatchTouchEvent', { type: 'touchEnd', touchPoints: [] });
    };
    await swipe(-80);
    await eventually(
      () => page.evaluate(() => scrollY),
      (y) => y > 40,
    );
    expect(await points(page, 'Detection1')).toEqual(before);
    // A tap while the page still glides only stops it.
    await eventually(
      async () => {
        await page.evaluate(() => scrollTo(0, 0));
        const tapped = await spot(page, 0.4, 0.6);
        await page.touchscreen.tap(tapped.x, tapped.y);
        return details(page).locator('h2').textContent();
      },
      (name) => name === 'Area 1',
    );
    // Far more than the page may still glide.
    const scrolled = await page.evaluate(() => scrollY);
    await swipe(-50);
    await eventually(
      () => points(page, 'Detection1'),
      (now) => before[0][1] - now[0][1] > 100,
    );
    expect(Math.abs((await page.evaluate(() => scrollY)) - scrolled)).toBeLessThan(20);
  });

  test('unsaved changes are marked and undone one by one', async () => {
    const page = await areas();
    const before = await points(page, 'Detection1');
    const marked = () =>
      page
        .getByRole('button', { name: /unsaved changes/ })
        .evaluateAll((buttons) => buttons.map((button) => button.getAttribute('aria-label')));
    await drag(page, 'Detection1', 0, 0.2, 0.3);
    await expectText(page, 'save-state', /^1 unsaved change in Areas$/);
    expect(await marked()).toEqual(['Area 1, unsaved changes']);
    await drag(page, 'Detection1', 2, 0.6, 0.9);
    await expectText(page, 'save-state', /^1 unsaved change in Areas$/);
    const both = await points(page, 'Detection1');
    await page.getByRole('button', { name: 'Undo' }).click();
    expect((await points(page, 'Detection1')).map((point, i) => String(point) === String(both[i]))).toEqual([
      true,
      true,
      false,
      true,
    ]);
    await page.getByRole('button', { name: 'Undo' }).click();
    expect(await points(page, 'Detection1')).toEqual(before);
    expect(await page.getByRole('button', { name: 'Save', exact: true }).count()).toBe(0);
  });
});
