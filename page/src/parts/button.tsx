import type { ComponentChildren } from 'preact';

/** A button that keeps the focus while it can do nothing: who works with the keyboard stays where they are. */
export function Button({
  disabled,
  onClick,
  children,
}: {
  disabled: boolean;
  onClick: () => void;
  children: ComponentChildren;
}) {
  return (
    <button type="button" aria-disabled={disabled} onClick={() => !disabled && onClick()}>
      {children}
    </button>
  );
}
