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

describe.skipIf(isMissing)('Saving', () => {
  useBrowser();

  test.each([
    ['takes theirs', 'Take theirs', '5', '60'],
    ['saves mine, and leaves the rest as they left it', 'Save mine', '7', '60'],
  ])('when two people save at once, the second one is warned and %s', async (_, button, objects, occupants) => {
    const page = await opened('detection');
    await store(page, { MinNumberOfPeopleForTrigger: '1', Occupants: '50' });
    await reload(page);
    await page.getByLabel('Number of people or vehicles').fill('7');
    const other = await opened('detection');
    await other.getByLabel('Number of people or vehicles').fill('5');
    await other.getByLabel('Alert at this many inside').fill('60');
    await save(other);

    await page.getByRole('button', { name: 'Save', exact: true }).click();
    const dialog = page.getByRole('dialog');
    await dialog.getByText('Somebody else has changed the settings').waitFor();
    expect(await dialog.locator('li').allTextContents()).toEqual([
      'Number of people or vehicles is now “5”, was “1” – changed here, too',
      'Alert at this many inside is now “60”, was “50”',
    ]);
    expect(await stored(page, 'MinNumberOfPeopleForTrigger')).toBe('5');
    await dialog.getByRole('button', { name: button }).click();
    await eventually(
      async () => [await stored(page, 'MinNumberOfPeopleForTrigger'), await stored(page, 'Occupants')],
      ([one, two]) => one === objects && two === occupants,
    );
    await eventually(
      () => page.getByLabel('Number of people or vehicles').inputValue(),
      (value) => value === objects,
    );
    await store(page, { MinNumberOfPeopleForTrigger: '1', Occupants: '50' });
  });

  test.each([
    ['Take theirs', [0.32, 0.42]],
    ['Save mine', [0.28, 0.464]],
  ])('of an area that two people have drawn all corners are those of one: %s', async (button, expected) => {
    const page = await opened('areas');
    const usual = { Detection1_0: '0.28', Detection1_1: '0.42' };
    await store(page, usual);
    await reload(page);
    await page.getByTestId('corner-1').focus();
    await page.keyboard.press('Shift+ArrowDown');
    // They have moved the corner sideways, and it was moved down here: both would be a third place.
    await store(page, { Detection1_0: '0.32' });
    await page.getByRole('button', { name: 'Save', exact: true }).click();
    const dialog = page.getByRole('dialog');
    await dialog.getByText('Area 1: Outline was drawn anew – changed here, too').waitFor();
    await dialog.getByRole('button', { name: button }).click();
    await dialog.waitFor({ state: 'detached' });
    if (button === 'Save mine') await expectText(page, 'save-state', /^Saved/);
    const told = await Promise.all(['Detection1_0', 'Detection1_1'].map((tag) => stored(page, tag)));
    expect(told.map(Number)).toEqual(expected.map((value) => expect.closeTo(value, 2)));
    await store(page, usual);
  });

  test('what others save shows when one comes back to the page, and when the camera comes back', async () => {
    const page = await opened('detection');
    const shown = () => page.getByLabel('Alert at this many inside').inputValue();
    await eventually(shown, (value) => value === '50');
    await store(page, { Occupants: '61' });
    await page.evaluate(() => document.dispatchEvent(new Event('visibilitychange')));
    await eventually(shown, (value) => value === '61');
    await store(page, { Occupants: '50' });
    await page.context().setOffline(true);
    await expectText(page, 'status', /^No answer$/);
    await page.context().setOffline(false);
    await eventually(shown, (value) => value === '50');
  });

  test('what is typed while a save runs stays, unsaved', async () => {
    const page = await opened('detection');
    let go = () => {};
    const held = new Promise<void>((resolve) => (go = resolve));
    await page.route('**/*action=set_post_parameters', async (route) => {
      await held;
      await route.continue();
    });
    await page.getByLabel('Number of people or vehicles').fill('2');
    await page.getByRole('button', { name: 'Save', exact: true }).click();
    await expectText(page, 'save-state', /^Saving/);
    await page.getByLabel('Number of people or vehicles').fill('23');
    await page.getByLabel('Alert at this many inside').fill('77');
    go();
    await expectText(page, 'save-state', /^Saved.* 2 unsaved changes in Detection$/);
    expect([await stored(page, 'MinNumberOfPeopleForTrigger'), await stored(page, 'Occupants')]).toEqual(['2', '50']);
    expect(await page.getByLabel('Number of people or vehicles').inputValue()).toBe('23');
    await save(page);
    expect([await stored(page, 'MinNumberOfPeopleForTrigger'), await stored(page, 'Occupants')]).toEqual(['23', '77']);
    await store(page, { MinNumberOfPeopleForTrigger: '1', Occupants: '50' });
  });

  test('after a save whose answer was lost nobody is blamed for it', async () => {
    const page = await opened('detection');
    const session = await page.context().newCDPSession(page);
    await session.send('Fetch.enable', {
      patterns: [{ urlPattern: '*action=set_post_parameters', requestStage: 'Response' }],
    });
    session.on('Fetch.requestPaused', ({ requestId, responseStatusCode }) => {
      const lose = responseStatusCode === 200;
      void (lose
        ? session.send('Fetch.failRequest', { requestId, errorReason: 'ConnectionReset' })
        : session.send('Fetch.continueRequest', { requestId }));
    });
    await page.getByLabel('Number of people or vehicles').fill('5');
    await page.locator('input[name=Sensitivity]').fill('0.45');
    await page.getByRole('button', { name: 'Save', exact: true }).click();
    await page.getByRole('alert').filter({ hasText: 'the camera does not answer' }).first().waitFor();
    expect(await stored(page, 'Sensitivity')).toBe('0.450000');
    await session.send('Fetch.disable');
    await page.getByLabel('Number of people or vehicles').fill('6');
    await save(page);
    expect(await stored(page, 'MinNumberOfPeopleForTrigger')).toBe('6');
    await store(page, { MinNumberOfPeopleForTrigger: '1', Sensitivity: '0.350000' });
  });

  test('unsaved changes say on which tab they are, in the bar and at the tab', async () => {
    const page = await opened('detection');
    await page.getByLabel('Number of people or vehicles').fill('5');
    await page.evaluate(() => (location.hash = '#/cameras'));
    await page.getByLabel('Report period').fill('9');
    await expectText(page, 'save-state', /^2 unsaved changes in Detection and Cameras$/);
    for (const [tab, marked] of [
      ['Live', 0],
      ['Areas', 0],
      ['Detection', 1],
      ['Reports', 0],
      ['Cameras', 1],
      ['Advanced', 0],
    ] as const) {
      const link = page.getByRole('navigation').getByRole('link', { name: new RegExp(`^${tab}`) });
      expect(await link.getByRole('img', { name: 'unsaved changes' }).count()).toBe(marked);
    }
    await page.getByRole('button', { name: 'Discard all' }).focus();
    await page.keyboard.press('Enter');
    await expectText(page, 'save-state', /^The changes on all tabs are discarded\./);
    expect(await focused(page)).toMatch(/^The changes on all tabs/);
    expect(await page.getByRole('img', { name: 'unsaved changes' }).count()).toBe(0);
    expect(await page.getByLabel('Report period').inputValue()).not.toBe('9');
    await page.getByRole('button', { name: 'Undo' }).click();
    await expectText(page, 'save-state', /^2 unsaved changes in Detection and Cameras$/);
    expect(await page.getByLabel('Report period').inputValue()).toBe('9');
  });

  test('what the camera holds otherwise than it was sent is named', async () => {
    const page = await opened('detection');
    await page.route('**/*action=set_post_parameters', (route) =>
      route.continue({
        postData: route
          .request()
          .postData()!
          .replace(/(<MinNumberOfPeopleForTrigger>)9</, (_, tag: string) => `${tag}8<`),
      }),
    );
    await page.getByLabel('Number of people or vehicles').fill('9');
    await page.getByRole('button', { name: 'Save', exact: true }).click();
    await page
      .getByRole('alert')
      .filter({ hasText: 'holds something else than was sent of: Number of people or vehicles.' })
      .waitFor();
    expect(await page.getByLabel('Number of people or vehicles').inputValue()).toBe('8');
    await store(page, { MinNumberOfPeopleForTrigger: '1' });
  });

  test('that something was saved is no longer said on another tab', async () => {
    const page = await opened('detection');
    await page.getByLabel('Number of people or vehicles').fill('3');
    await save(page);
    await page.getByRole('link', { name: 'Cameras' }).click();
    await page.getByLabel('Report period').waitFor();
    expect(await page.getByText(/^Saved/).count()).toBe(0);
    await store(page, { MinNumberOfPeopleForTrigger: '1' });
  });

  test.each(['Cancel', 'Escape', 'Take theirs', 'Save mine'])(
    'the focus is where it was after the question that two savers are asked: %s',
    async (way) => {
      const page = await opened('detection');
      await page.getByLabel('Number of people or vehicles').fill('7');
      await store(page, { Occupants: '61' });
      await page.getByRole('button', { name: 'Save', exact: true }).focus();
      await page.keyboard.press('Enter');
      await page.getByRole('dialog').waitFor();
      if (way === 'Escape') await page.keyboard.press('Escape');
      else await page.getByRole('dialog').getByRole('button', { name: way }).click();
      await page.getByRole('dialog').waitFor({ state: 'detached' });
      if (way === 'Save mine') await expectText(page, 'save-state', /^Saved/);
      const where = await page.evaluate(
        () => document.activeElement!.closest('.save-bar, main')?.className ?? 'nowhere',
      );
      const expected = {
        Cancel: 'Save',
        Escape: 'Save',
        'Take theirs': '',
        'Save mine': 'Saved. The camera counts with it from now on.',
      }[way];
      if (way !== 'Take theirs') expect(await focused(page)).toBe(expected);
      expect(where).not.toBe('nowhere');
      await store(page, { MinNumberOfPeopleForTrigger: '1', Occupants: '50' });
    },
  );

  test.each(['Cancel', 'Escape', 'Clear log'])('and after any other question: %s', async (way) => {
    const page = await opened('advanced');
    await page.getByRole('button', { name: 'Clear log' }).focus();
    await page.keyboard.press('Enter');
    await page.getByRole('dialog').waitFor();
    if (way === 'Escape') await page.keyboard.press('Escape');
    else await page.getByRole('dialog').getByRole('button', { name: way }).click();
    await page.getByRole('dialog').waitFor({ state: 'detached' });
    expect(await focused(page)).toBe('Clear log');
  });

  test.each([
    [500, 'the camera refused a value'],
    [400, 'could not read the settings'],
    [503, 'the camera is restarting'],
    [0, 'the camera does not answer'],
  ])('a save that fails with %d says why and keeps what was typed', async (status, reason) => {
    const page = await opened('detection');
    await page.route('**/*action=set_post_parameters', (route) => (status ? route.fulfill({ status }) : route.abort()));
    await page.getByLabel('Number of people or vehicles').fill('9');
    await page.getByRole('button', { name: 'Save', exact: true }).click();
    await page.getByRole('alert').filter({ hasText: reason }).waitFor();
    await expectText(page, 'save-state', /What was typed is kept/);
    await show(page, 'live');
    await page.getByRole('link', { name: 'Detection' }).click();
    expect(await page.getByLabel('Number of people or vehicles').inputValue()).toBe('9');
    await page.unroute('**/*action=set_post_parameters');
    await save(page);
    expect(await stored(page, 'MinNumberOfPeopleForTrigger')).toBe('9');
    await store(page, { MinNumberOfPeopleForTrigger: '1' });
  });

  test('a value that the camera itself refuses is kept as it was typed', async () => {
    const page = await opened('detection');
    // The page lets no such value through.
    await page.route('**/*action=set_post_parameters', (route) =>
      route.continue({
        postData: route
          .request()
          .postData()!
          .replace(/(<MinNumberOfPeopleForTrigger>)9</, '$1many<'),
      }),
    );
    await page.getByLabel('Number of people or vehicles').fill('9');
    const [answer] = await Promise.all([
      page.waitForResponse('**/*action=set_post_parameters'),
      page.getByRole('button', { name: 'Save', exact: true }).click(),
    ]);
    expect(answer.status()).toBe(500);
    await page
      .getByRole('alert')
      .filter({ hasText: 'the camera refused a value. Some of the others may be in use already' })
      .waitFor();
    expect(await page.getByLabel('Number of people or vehicles').inputValue()).toBe('9');
    expect(await stored(page, 'MinNumberOfPeopleForTrigger')).toBe('1');
    expect(await ask(page, 'get_logfile_as_plain_text')).toContain('trying to set post parameters');
    await page.unroute('**/*action=set_post_parameters');
    await save(page);
    expect(await stored(page, 'MinNumberOfPeopleForTrigger')).toBe('9');
    await store(page, { MinNumberOfPeopleForTrigger: '1' });
  });

  test('leaving with unsaved changes is asked about', async () => {
    const page = await opened('detection');
    await page.getByLabel('Number of people or vehicles').fill('9');
    const asked = page.waitForEvent('dialog');
    const left = page.close({ runBeforeUnload: true });
    const dialog = await asked;
    expect(dialog.type()).toBe('beforeunload');
    await dialog.accept();
    await left;
  });
});
