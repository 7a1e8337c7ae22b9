import { actionAddress, kMostWait, request } from './api';
import { Line, readLines } from './crossings';

export const kDay = 86_400_000;
/** In one answer. */
const kLines = 1000;

/** All lines of some kinds from a time on, until one of a later time than the second. Throws CameraError. */
export async function linesOf(kinds: string, from: number, to = Infinity): Promise<Line[]> {
  const lines: Line[] = [];
  for (let since = ''; ; ) {
    const response = await request(
      actionAddress(`get_ledger&newest=1&kinds=${kinds}&from=${new Date(from).toISOString()}&limit=${kLines}${since}`),
      { signal: AbortSignal.timeout(kMostWait) },
    );
    lines.push(...readLines(await response.text()));
    const [next, end] = [response.headers.get('X-Ledger-Next'), response.headers.get('X-Ledger-End')];
    const isPast = lines.length > 0 && Date.parse(String(lines[lines.length - 1].value.t)) > to;
    if (isPast || !next || next === end || `&since=${next}` === since) return lines;
    since = `&since=${next}`;
  }
}
