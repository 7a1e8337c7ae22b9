import { loginCheck, webService } from '../camera';
import { role } from './role';

/** Why the camera gave no answer. */
export type Trouble = 'signedOut' | 'restarting' | 'unreachable' | 'refused';

export class CameraError extends Error {
  constructor(
    readonly trouble: Trouble,
    /** The HTTP status, 0 when there was no answer. */
    readonly status: number,
  ) {
    super(`${trouble} (${status})`);
  }
}

export const kMostWait = 15_000;
/** Between two questions for what is being counted. */
const kPause = 300;
/** No other page may send it: without it, the web server lets no browser change anything. */
const kOfThisPage = { 'X-Senvo-Page': '1' };
/** For somebody who is asked for the login. */
const kMostSignIn = 180_000;

/** Asks; throws CameraError when the camera does not answer, or not with what was asked for, or what it is given up with. */
export async function request(address: string, options: RequestInit = {}): Promise<Response> {
  let response: Response;
  try {
    response = await fetch(address, { cache: 'no-store', ...options });
  } catch {
    const reason: unknown = options.signal?.reason;
    throw reason instanceof CameraError ? reason : new CameraError('unreachable', 0);
  }
  if (response.ok) {
    role.tell(response);
    return response;
  }
  throw new CameraError(troubleOf(response.status), response.status);
}

export function troubleOf(status: number): Trouble {
  if (status === 401) return 'signedOut';
  // The web server answers so while the application behind it is being started again.
  return status >= 502 && status <= 504 ? 'restarting' : 'refused';
}

/**
 * Waits until the login is accepted. A browser may ask its user for it meanwhile, for minutes, and would stop asking were
 * the request given up: `asks` is called when that seems to be so. Whoever aborts the question ends the waiting; after three
 * minutes it ends by itself. Throws CameraError.
 */
export async function signIn(question: AbortController, asks: () => void): Promise<void> {
  let isOver = false;
  const giveUp = (trouble: Trouble) => question.abort(new CameraError(trouble, 0));
  const probe = setTimeout(async () => {
    // Without a login the web server refuses at once, if it is there.
    const refused = await fetch(loginCheck, {
      cache: 'no-store',
      credentials: 'omit',
      signal: AbortSignal.timeout(kMostWait),
    }).catch(() => null);
    if (isOver) return;
    if (refused?.status === 401) asks();
    else giveUp('unreachable');
  }, kMostWait);
  const limit = setTimeout(() => giveUp('signedOut'), kMostSignIn);
  try {
    await request(loginCheck, { signal: question.signal });
  } finally {
    isOver = true;
    clearTimeout(probe);
    clearTimeout(limit);
  }
}

export function actionAddress(action: string): string {
  return `${webService}?action=${action}`;
}

function get(action: string): Promise<Response> {
  return request(actionAddress(action), { headers: kOfThisPage, signal: AbortSignal.timeout(kMostWait) });
}

export async function ask(action: string): Promise<string> {
  return (await get(action)).text();
}

/**
 * Asks for what the camera may count for a while: it answers with a number then, by which the answer is asked for. body:
 * of a question that is posted.
 */
export async function askCounted(action: string, body?: string): Promise<unknown> {
  let told = JSON.parse(await (body === undefined ? ask(action) : post(action, body))) as { job?: number };
  while (typeof told.job === 'number') {
    await new Promise((resolve) => setTimeout(resolve, kPause));
    told = JSON.parse(await ask(`ledger_answer&job=${told.job}`)) as { job?: number };
  }
  return told;
}

/**
 * Asks for several things of one moment. They come in one answer, each but the first behind a head of its own. date: when it
 * was by the camera's clock, in milliseconds since 1970; null where it does not tell.
 */
export async function askTogether(actions: string[]): Promise<{ parts: string[]; date: number | null }> {
  const response = await get(actions.join('&action='));
  const date = Date.parse(response.headers.get('Date') ?? '');
  const parts = (await response.text()).split(/Status: 200 OK\r\n(?:[^\r\n]+\r\n)*\r\n/);
  return { parts, date: Number.isNaN(date) ? null : date };
}

export async function post(action: string, body: string): Promise<string> {
  return (
    await request(actionAddress(action), {
      method: 'POST',
      body,
      headers: { ...kOfThisPage, 'Content-Type': 'text/xml' },
      signal: AbortSignal.timeout(kMostWait),
    })
  ).text();
}
