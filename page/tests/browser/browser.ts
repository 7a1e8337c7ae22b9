import { mkdirSync, mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { Browser, BrowserContext, BrowserContextOptions, chromium, Page } from 'playwright-core';
import { afterAll, afterEach, beforeAll, expect, inject } from 'vitest';

const buildings = inject('buildings');
export const isMissing = buildings.length === 0;

/** This worker's own; nobody else changes its settings meanwhile. */
export const building = isMissing ? null : buildings[Number(process.env.VITEST_POOL_ID) - 1];
if (!isMissing && !building)
  throw new Error(`expected a worker from 1 to ${buildings.length}, got ${process.env.VITEST_POOL_ID}`);

export const screenshots = process.env.SCREENSHOTS ?? join(__dirname, '../../../build/screenshots');
mkdirSync(screenshots, { recursive: true });

export const tabs = ['live', 'areas', 'detection', 'reports', 'count', 'cameras', 'advanced'] as const;
export type Tab = (typeof tabs)[number];

/** What a camera that counts says of itself, whichever alerts who walks there raises. */
export const kRuns = /Running|Alert|Analysis too slow/;

/** Ends what hangs, on a loaded machine, too. */
export const kPatience = 300_000;

let browser: Browser;
let contexts: BrowserContext[] = [];

/** What the pages of the running test asked other hosts for, and what they threw. Both stay empty. */
export const offences: string[] = [];

export function useBrowser(): void {
  beforeAll(async () => {
    if (isMissing) return;
    browser = await chromium.connect(inject('browser'));
  });
  afterEach(async ({ task }) => {
    const error = task.result?.state === 'fail' && task.result.errors?.at(-1);
    if (error) console.log(`${task.name}: ${error.message}\n${(await seen()).join('\n')}`);
    await Promise.all(contexts.map((context) => context.close()));
    contexts = [];
    expect(offences.splice(0)).toEqual([]);
  });
  afterAll(async () => {
    await browser?.close();
  });
}

/** What the open pages showed at last, for whoever wonders why a test failed. */
async function seen(): Promise<string[]> {
  const pages = contexts.flatMap((context) => context.pages());
  return Promise.all(
    pages.map(async (page) => {
      const words = await page.evaluate(() => document.body.innerText.slice(0, 500)).catch(String);
      return `seen at ${page.url()}: ${JSON.stringify(words)}`;
    }),
  );
}

const origin = () => new URL(building!.url).origin;

export async function open(
  options: BrowserContextOptions = {},
  prepare: (page: Page) => Promise<unknown> = async () => {},
): Promise<Page> {
  const context = await browser.newContext({
    httpCredentials: { username: 'operator', password: building!.password },
    viewport: { width: 1360, height: 850 },
    locale: 'en-GB',
    reducedMotion: 'reduce',
    ...options,
  });
  context.setDefaultTimeout(kPatience);
  // A stream as fast as the camera's takes the machine's time from everything else. Who answers for the login takes all
  // requests in hand, which nobody else may then.
  if (!('httpCredentials' in options))
    await context.route(/\/video\.mjpg\?/, (route) => route.continue({ url: `${route.request().url()}&fps=3` }));
  contexts.push(context);
  const page = await context.newPage();
  page.on('request', (request) => {
    if (!request.url().startsWith(origin()) && !/^(blob|data):/.test(request.url())) offences.push(request.url());
  });
  page.on('pageerror', (error) => offences.push(error.stack ?? String(error)));
  await prepare(page);
  return page;
}

/** Whether the web server let one in: right after a change of password logins are slowed down. */
const isLetIn = (status?: number) => status !== 401 && status !== 429;

export async function show(page: Page, tab: Tab): Promise<void> {
  const address = `${building!.url}local/ostrel_senvo/index.html#/${tab}`;
  if (!isLetIn((await page.goto(address))?.status())) await reload(page);
  await page.getByRole('heading', { level: 1, name: new RegExp(tab, 'i') }).waitFor();
  await page.waitForFunction(() => !document.querySelector('[data-testid=status]')?.textContent?.includes('Asking'));
}

/** Reads the page anew; again while logins are slowed down. */
export async function reload(page: Page): Promise<void> {
  await eventually(async () => (await page.reload())?.status(), isLetIn);
}

/** A tab of a page of its own. */
export async function opened(
  tab: Tab,
  options: BrowserContextOptions = {},
  prepare?: (page: Page) => Promise<unknown>,
): Promise<Page> {
  const page = await open(options, prepare);
  await show(page, tab);
  return page;
}

export function address(action: string): string {
  return `${building!.url}local/ostrel_senvo/webservices.cgi?action=${action}`;
}

/** Asks the camera past the page's own code; again while logins are slowed down, as right after a change of password. */
export async function ask(page: Page, action: string): Promise<string> {
  return page.evaluate(async (url) => {
    for (;;) {
      const answer = await fetch(url, { headers: { 'X-Senvo-Page': '1' } });
      if (answer.status !== 401 && answer.status !== 429) return answer.text();
      await new Promise((resolve) => setTimeout(resolve, 500));
    }
  }, address(action));
}

export async function post(page: Page, action: string, body: string): Promise<number> {
  return page.evaluate(
    async ([url, text]) => (await fetch(url, { method: 'POST', body: text, headers: { 'X-Senvo-Page': '1' } })).status,
    [address(action), body] as const,
  );
}

export async function stored(page: Page, tag: string): Promise<string> {
  const document = await ask(page, 'get_all_parameters');
  return new RegExp(`<${tag}>([^<]*)</${tag}>`).exec(document)?.[1] ?? `no ${tag}`;
}

/** Changes stored settings past the page. */
export async function store(page: Page, changes: Record<string, string>): Promise<void> {
  let document = await ask(page, 'get_all_parameters');
  for (const [tag, value] of Object.entries(changes)) {
    document = document.replace(new RegExp(`<${tag}>[^<]*</${tag}>`), () => `<${tag}>${value}</${tag}>`);
  }
  expect(
    await post(page, 'set_post_parameters', `<root>${document.slice('<app>'.length, -'</app>'.length)}</root>`),
  ).toBe(200);
}

/** What a link downloads. */
export async function downloaded(page: Page, name: string): Promise<string> {
  const [download] = await Promise.all([page.waitForEvent('download'), page.getByRole('link', { name }).click()]);
  const folder = mkdtempSync(join(tmpdir(), 'senvo-download-'));
  try {
    await download.saveAs(join(folder, 'file'));
    return readFileSync(join(folder, 'file'), 'utf8');
  } finally {
    rmSync(folder, { recursive: true });
  }
}

/** What people hear of the element that has the focus. */
export async function focused(page: Page): Promise<string> {
  return page.evaluate(() => {
    const { activeElement } = document;
    return activeElement?.getAttribute('aria-label') ?? activeElement?.textContent ?? '';
  });
}

export async function save(page: Page): Promise<void> {
  await page.getByRole('button', { name: 'Save', exact: true }).click();
  await expectText(page, 'save-state', /^Saved/);
}

/** Waits until an element reads so. */
export async function expectText(page: Page, testid: string, expected: RegExp): Promise<void> {
  await page.getByTestId(testid).filter({ hasText: expected }).first().waitFor();
}

/** Waits until something is so, and says at the end what it was. */
export async function eventually<T>(
  look: () => Promise<T>,
  expected: (value: T) => boolean,
  patience = kPatience,
): Promise<T> {
  const end = Date.now() + patience;
  let value = await look();
  while (!expected(value)) {
    if (Date.now() > end) throw new Error(`never came true; at last: ${JSON.stringify(value)}`);
    await new Promise((resolve) => setTimeout(resolve, 100));
    value = await look();
  }
  return value;
}
