import { useLayoutEffect } from 'preact/hooks';

type Focusable = HTMLElement | SVGElement;

/** Gives the focus to something, or to the page's content where that is gone or takes none. */
export function focusOn(element: Focusable | null): void {
  element?.focus({ preventScroll: true });
  if (!element || document.activeElement !== element)
    document.getElementById('content')?.focus({ preventScroll: true });
}

/** Where what had the focus in a part of the page goes, something else takes it: a keyboard would begin at the top otherwise. */
export function useFocusKept(part: { current: Element | null }, next: () => Focusable | null): void {
  const had = part.current?.contains(document.activeElement);
  useLayoutEffect(() => {
    if (had && document.activeElement === document.body) focusOn(next());
  });
}
