/** The values under two fingers stay under them: what span is seen then, given what was seen and where the fingers were and are, as fractions. */
export function pinched(
  [from, to]: [number, number],
  before: [number, number],
  now: [number, number],
): [number, number] {
  const values = before.map((at) => from + at * (to - from));
  const [left, right] = now[0] < now[1] ? now : [now[1], now[0]];
  const [low, high] = values[0] < values[1] ? values : [values[1], values[0]];
  // Fingers on one spot would show nothing at all.
  const scale = (high - low) / Math.max(right - left, 0.02);
  return [low - left * scale, low + (1 - left) * scale];
}

/** Tells which span two fingers on an element ask for. Returns what ends it. */
export function onPinch(
  element: HTMLElement,
  seen: () => [number, number],
  show: (span: [number, number]) => void,
): () => void {
  const fingers = new Map<number, number>();
  let start: { seen: [number, number]; at: [number, number] } | null = null;
  const at = (event: PointerEvent) => {
    const frame = element.getBoundingClientRect();
    return (event.clientX - frame.left) / frame.width;
  };
  const both = () => [...fingers.values()] as [number, number];
  const down = (event: PointerEvent) => {
    if (event.pointerType !== 'touch') return;
    fingers.set(event.pointerId, at(event));
    start = fingers.size === 2 ? { seen: seen(), at: both() } : null;
  };
  const move = (event: PointerEvent) => {
    if (!fingers.has(event.pointerId)) return;
    fingers.set(event.pointerId, at(event));
    if (start) show(pinched(start.seen, start.at, both()));
  };
  const up = (event: PointerEvent) => {
    fingers.delete(event.pointerId);
    start = null;
  };
  const handlers = [
    ['pointerdown', down],
    ['pointermove', move],
    ['pointerup', up],
    ['pointercancel', up],
  ] as const;
  for (const [name, handler] of handlers) element.addEventListener(name, handler);
  return () => {
    for (const [name, handler] of handlers) element.removeEventListener(name, handler);
  };
}
