import { useEffect, useRef, useState } from 'preact/hooks';
import { centre, insidePicture, moved, Point, Size } from '../model/geometry';
import { AreaKind, areaKinds, cornersTag, hidingSize, kLeastCorners, kMostCorners } from '../model/settings';
import { settings, useSettings } from '../stores';
import { texts } from '../texts';
import { useFocusKept } from './focus';
import { Picture } from './picture';

const t = texts.areas;

/** The area that is being worked on, and the corner, if one has the focus. */
export interface Selected {
  kind: AreaKind;
  number: number;
  corner: number | null;
}

interface Props {
  selected: Selected;
  onSelect: (selected: Selected) => void;
  /** Tells whether it was done. */
  onAdd: (kind: AreaKind, number: number, after: number | null) => boolean;
  onRemove: (selected: Selected) => void;
}

const arrows: Record<string, Point> = {
  ArrowLeft: { x: -1, y: 0 },
  ArrowRight: { x: 1, y: 0 },
  ArrowUp: { x: 0, y: -1 },
  ArrowDown: { x: 0, y: 1 },
};
const kStep = 0.0025;
const kBigStep = 0.025;
const kGripRadius = 9;
const kTouchRadius = 20;
const kAddRadius = 7;
/** About half a letter of an area's name, in pixels of the screen. */
const kHalfLetter = 4.6;

const addSign = (
  <>
    <circle r={kAddRadius} />
    <path d="M-3.5 0h7M0 -3.5v7" />
  </>
);

/** How many picture pixels one pixel of the screen is, so that grips stay as big as fingers. */
function useScale(svg: { current: SVGSVGElement | null }, size: Size): number {
  const [scale, setScale] = useState(1);
  useEffect(() => {
    const measure = () => setScale(size.width / Math.max(1, svg.current?.clientWidth ?? 0));
    const observer = new ResizeObserver(measure);
    observer.observe(svg.current!);
    return () => observer.disconnect();
  }, [size.width]);
  return scale;
}

/** The areas on the live picture: corners and whole areas are moved by pointer, finger or keyboard. */
export function AreaEditor({ selected, onSelect, onAdd, onRemove }: Props) {
  const store = useSettings();
  const { size } = store;
  const svg = useRef<SVGSVGElement>(null);
  const scale = useScale(svg, size);
  const pressedAdd = useRef(false);
  const tapped = useRef<SVGElement | null>(null);
  const following = useRef(false);
  // What is analysed, but for those who are to be hidden: they are on every tab.
  const hidden = store.loaded ? hidingSize(store.loaded, size) : '';
  const resolution = hidden || `${size.width}x${size.height}`;
  const shown = areaKinds
    .flatMap((kind) => [1, 2, 3].map((number) => ({ kind, number })))
    .filter(({ kind, number }) => store.values.get(`${kind}${number}_Active`) === '1' || isSelected(kind, number));

  function isSelected(kind: AreaKind, number: number): boolean {
    return selected.kind === kind && selected.number === number;
  }

  /** Where on the picture a pointer is. */
  function at(event: PointerEvent): Point {
    const frame = svg.current!.getBoundingClientRect();
    return {
      x: ((event.clientX - frame.left) / frame.width) * size.width,
      y: ((event.clientY - frame.top) / frame.height) * size.height,
    };
  }

  /**
   * What a pointer means: of everything under it what belongs to the selected area, which others may cover. The areas keep
   * their order, for whatever is moved in the document loses the focus and the pointer.
   */
  function meant(event: MouseEvent, what: string): Element | null {
    const under = [event.target as Element, ...document.elementsFromPoint(event.clientX, event.clientY)];
    const found = under
      .map((element) => element.closest(what))
      .filter((element) => element !== null && svg.current!.contains(element));
    return found.find((element) => element!.closest('.selected')) ?? found[0] ?? null;
  }

  const partOf = ({ dataset }: SVGElement): Selected => ({
    kind: dataset.kind as AreaKind,
    number: Number(dataset.number),
    corner: dataset.corner === undefined ? null : Number(dataset.corner),
  });

  /** Adds a corner where its sign was clicked, or selects the area that was tapped. */
  function click(event: MouseEvent): void {
    if (tapped.current) onSelect(partOf(tapped.current));
    tapped.current = null;
    // The end of a drag is a click, too. One without a pointer comes from a screen reader.
    const sign = pressedAdd.current || event.detail === 0 ? (meant(event, '.add') as SVGElement | null) : null;
    if (!sign) return;
    const { kind, number, corner } = partOf(sign);
    if (onAdd(kind, number, corner)) onSelect({ kind, number, corner: corner! + 1 });
  }

  /** Follows the pointer until it is let go; one drag is one step for undo. */
  function drag(event: PointerEvent): void {
    tapped.current = null;
    if (event.button !== 0) return;
    const corner = meant(event, '.corner');
    pressedAdd.current = !corner && meant(event, '.add') !== null;
    const found = (corner ?? meant(event, 'polygon')) as SVGElement | null;
    if (!found || pressedAdd.current) return;
    if (event.pointerType === 'touch' && !found.closest('.selected')) {
      // It may be about to scroll.
      tapped.current = found;
      return;
    }
    event.preventDefault();
    follow(event, found);
  }

  function follow(event: PointerEvent, part: SVGElement): void {
    const { kind, number, corner } = partOf(part);
    const target = svg.current!;
    part.focus({ preventScroll: true });
    target.setPointerCapture(event.pointerId);
    following.current = true;
    onSelect({ kind, number, corner });
    const from = at(event);
    const before = settings.polygon(kind, number);
    const key = `drag ${event.timeStamp}`;
    const move = (next: PointerEvent) => {
      if (next.pointerId !== event.pointerId) return;
      const to = at(next);
      const by = { x: to.x - from.x, y: to.y - from.y };
      settings.draw(kind, number, corner === null ? moved(before, by, size) : withCorner(before, corner, by), key);
    };
    const end = () => {
      following.current = false;
      target.removeEventListener('pointermove', move);
      target.removeEventListener('pointerup', end);
      target.removeEventListener('pointercancel', end);
    };
    target.addEventListener('pointermove', move);
    target.addEventListener('pointerup', end);
    target.addEventListener('pointercancel', end);
  }

  function withCorner(polygon: Point[], corner: number, by: Point): Point[] {
    return polygon.map((p, i) => (i === corner ? insidePicture({ x: p.x + by.x, y: p.y + by.y }, size) : p));
  }

  const partNamed = (kind: AreaKind, number: number, what: string) =>
    svg.current!.querySelector<SVGElement>(`${what}[data-kind=${kind}][data-number="${number}"]`)!;

  // A corner that is taken back has its area left.
  useFocusKept(svg, () => partNamed(selected.kind, selected.number, 'polygon'));

  function press(event: KeyboardEvent, kind: AreaKind, number: number, corner: number | null): void {
    const arrow = arrows[event.key];
    if (arrow) {
      const step = Math.max(1, Math.round(size.width * (event.shiftKey ? kBigStep : kStep)));
      const by = { x: arrow.x * step, y: arrow.y * step };
      const before = settings.polygon(kind, number);
      settings.draw(
        kind,
        number,
        corner === null ? moved(before, by, size) : withCorner(before, corner, by),
        `keys ${kind}${number} ${corner}`,
      );
    } else if (event.key === 'Enter' || event.key === ' ') {
      // Into the area, to its first corner, and out of it again.
      partNamed(kind, number, corner === null ? '.corner' : 'polygon').focus({ preventScroll: true });
    } else if (event.key === 'Insert' || event.key === '+') {
      onAdd(kind, number, corner);
    } else if ((event.key === 'Delete' || event.key === 'Backspace') && corner !== null) {
      if (cornersTag[kind] && store.polygon(kind, number).length > kLeastCorners) {
        // The corner goes, and with it the focus.
        partNamed(kind, number, 'polygon').focus({ preventScroll: true });
        onRemove({ kind, number, corner });
      }
    } else {
      return;
    }
    event.preventDefault();
  }

  function area(kind: AreaKind, number: number) {
    const polygon = store.polygon(kind, number);
    const name = t.name[kind](number);
    const active = store.values.get(`${kind}${number}_Active`) === '1';
    const on = isSelected(kind, number);
    const middle = centre(polygon);
    const halfName = Math.min(size.width / 2, kHalfLetter * name.length * scale);
    const nameAt = Math.max(halfName, Math.min(size.width - halfName, middle.x));
    return (
      <g
        key={`${kind}${number}`}
        class={`area ${kind} ${active ? '' : 'off'} ${on ? 'selected' : ''}`}
        data-testid={`area-${kind}${number}`}
      >
        <polygon
          points={polygon.map((p) => `${p.x},${p.y}`).join(' ')}
          tabIndex={0}
          role="button"
          aria-label={t.whole(name)}
          aria-describedby="areas-help"
          data-kind={kind}
          data-number={number}
          onFocus={() => !on && onSelect({ kind, number, corner: null })}
          onKeyDown={(event) => press(event, kind, number, null)}
        />
        <text x={nameAt} y={middle.y} font-size={14 * scale} stroke-width={3 * scale} aria-hidden="true">
          {name}
        </text>
        {on && polygon.map((p, i) => grips(kind, number, polygon, p, i))}
      </g>
    );
  }

  /** Whether there is room for a corner after one. */
  function isAddable(kind: AreaKind, polygon: Point[], i: number): boolean {
    const [p, next] = [polygon[i], polygon[(i + 1) % polygon.length]];
    const length = Math.hypot(next.x - p.x, next.y - p.y);
    return cornersTag[kind] !== null && polygon.length < kMostCorners && length > 5 * kGripRadius * scale;
  }

  const between = (p: Point, next: Point) => `translate(${(p.x + next.x) / 2} ${(p.y + next.y) / 2}) scale(${scale})`;

  function grips(kind: AreaKind, number: number, polygon: Point[], p: Point, i: number) {
    const name = t.name[kind](number);
    const next = polygon[(i + 1) % polygon.length];
    const percent = (value: number, all: number) => Math.round((value / all) * 100);
    return (
      <g key={i}>
        {isAddable(kind, polygon, i) && (
          <g
            class="add"
            role="button"
            tabIndex={-1}
            aria-label={t.addHere(name, i + 1)}
            data-kind={kind}
            data-number={number}
            data-corner={i}
            transform={between(p, next)}
          >
            {addSign}
          </g>
        )}
        <g
          class={`corner ${selected.corner === i ? 'chosen' : ''}`}
          role="button"
          tabIndex={0}
          aria-describedby="areas-help"
          data-testid={`corner-${i + 1}`}
          aria-label={t.corner(name, i + 1, percent(p.x, size.width), percent(p.y, size.height))}
          data-kind={kind}
          data-number={number}
          data-corner={i}
          onFocus={() => onSelect({ kind, number, corner: i })}
          onKeyDown={(event) => press(event, kind, number, i)}
        >
          <circle class="touch" cx={p.x} cy={p.y} r={kTouchRadius * scale} />
          <circle class="grip" cx={p.x} cy={p.y} r={kGripRadius * scale} />
        </g>
      </g>
    );
  }

  /** The grips of the selected area once more, on top of everything, for the eye alone. */
  function onTop() {
    const { kind, number, corner } = selected;
    const polygon = store.polygon(kind, number);
    return (
      <g class={`area on-top ${kind}`} aria-hidden="true" pointer-events="none">
        {polygon.map((p, i) => (
          <g key={i}>
            {isAddable(kind, polygon, i) && (
              <g class="add" transform={between(p, polygon[(i + 1) % polygon.length])}>
                {addSign}
              </g>
            )}
            <g class={`corner ${corner === i ? 'chosen' : ''}`}>
              <circle class="grip" cx={p.x} cy={p.y} r={kGripRadius * scale} />
            </g>
          </g>
        ))}
      </g>
    );
  }

  return (
    <Picture resolution={store.resolutions.includes(resolution) ? resolution : ''} size={size}>
      <svg
        ref={svg}
        class="editor"
        viewBox={`0 0 ${size.width} ${size.height}`}
        preserveAspectRatio="none"
        role="application"
        aria-label={t.editor}
        aria-describedby="areas-help"
        onPointerDown={drag}
        onClick={click}
        onTouchStart={(event) => following.current && event.preventDefault()}
      >
        {shown.map(({ kind, number }) => area(kind, number))}
        {onTop()}
      </svg>
    </Picture>
  );
}
