/*
 * Readers of what the camera sends. Nothing of it is trusted: names and log lines hold whatever somebody typed, and the
 * documents have no escaping. What is read here is shown as text only.
 */

export const kFollowers = 10;

/**
 * The elements of a flat document in their order. A value ends where its own closing tag begins, so that markup inside
 * a value is part of it; a value without closing tag ends at the next tag. Of two elements with one name the first
 * counts. Elements that nobody knows are kept.
 */
export function readElements(document: string): Map<string, string> {
  const elements = new Map<string, string>();
  const outer = /^(?:\s|<\?[^>]*>)*<(app|root)>/.exec(document);
  let at = outer ? outer[0].length : 0;
  for (;;) {
    const open = document.indexOf('<', at);
    const close = open < 0 ? -1 : document.indexOf('>', open);
    if (close < 0) return elements;
    const tag = document.slice(open + 1, close);
    at = close + 1;
    if (!/^\w+$/.test(tag)) continue;
    const end = document.indexOf(`</${tag}>`, at);
    const next = end >= 0 ? end : document.indexOf('<', at);
    if (!elements.has(tag)) elements.set(tag, document.slice(at, next < 0 ? undefined : next));
    if (next < 0) return elements;
    at = end >= 0 ? end + tag.length + 3 : next;
  }
}

/** A whole number as text, or null. */
export function readInteger(text: string | undefined): number | null {
  const trimmed = (text ?? '').trim();
  return /^-?\d{1,10}$/.test(trimmed) ? Number(trimmed) : null;
}

/** Seconds since each follower last told its counts, the first follower first; null for one that has not. */
export function readAges(text: string): (number | null)[] {
  const ages = text.split(',').map(readInteger);
  return Array.from({ length: kFollowers }, (_, i) => {
    const age = ages.length === kFollowers ? ages[i] : null;
    return age === null || age < 0 ? null : age;
  });
}

export interface PanelCamera {
  /** 0 is this camera, 1 to 10 are the followers. */
  index: number;
  name: string;
  active: boolean;
  status: string;
  /** In its detection areas; null when it did not answer. */
  crowd: number | null;
}

export interface Panel {
  /** Inside, in the building; null when the document does not say. */
  occupancy: number | null;
  /** From so many inside on there is an alert; null when the document does not say. */
  limit: number | null;
  cameras: PanelCamera[];
}

/** This camera and its followers; what is missing in the document reads as unknown. */
export function readPanel(document: string): Panel {
  const elements = readElements(document);
  const cameras: PanelCamera[] = [];
  for (let index = 0; index <= kFollowers; ++index) {
    const crowd = readInteger(elements.get(`AOICam_${index}`));
    cameras.push({
      index,
      name: elements.get(`NameCam_${index}`) ?? '',
      active: elements.get(`ActiveCam_${index}`) === '1',
      status: elements.get(`StatusCam_${index}`) ?? '',
      crowd: crowd === null || crowd < 0 ? null : crowd,
    });
  }
  return { occupancy: readInteger(elements.get('TotalOcc')), limit: readInteger(elements.get('Occupants')), cameras };
}

/** "1280x720" as numbers; null for anything else. */
export function readResolution(text: string): { width: number; height: number } | null {
  const found = /^\s*([1-9]\d{0,4})x([1-9]\d{0,4})\s*$/.exec(text);
  return found ? { width: Number(found[1]), height: Number(found[2]) } : null;
}

/** "640x360,1280x720," as its entries; what is no resolution is left out. */
export function readResolutions(csv: string): string[] {
  return csv
    .split(',')
    .map((entry) => entry.trim())
    .filter((entry) => readResolution(entry));
}

export type LogLevel = 'info' | 'warning' | 'error';

export interface LogLine {
  time: string;
  level: LogLevel;
  message: string;
}

/** Lines as "time|application|level|message", oldest first. A line that is not so is a message of level info. */
export function readLog(text: string): LogLine[] {
  const lines: LogLine[] = [];
  for (const line of text.split('\n')) {
    const found = /^([^|]*)\|[^|]*\|(info|warning|error)\|(.*)$/s.exec(line);
    if (found) lines.push({ time: found[1], level: found[2] as LogLevel, message: found[3] });
    else if (line.replace(/\|/g, '').trim()) lines.push({ time: '', level: 'info', message: line });
  }
  return lines.filter((line) => line.message.trim());
}
